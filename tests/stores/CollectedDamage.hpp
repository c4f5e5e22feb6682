#pragma once

// What stores tell of damage that they come upon.

#include <string>
#include <utility>
#include <vector>

#include "host/Text.hpp"
#include "project/metadata/MetadataDamage.hpp"

namespace test {

/// Is told of damage for as long as it exists.
class CollectedDamage {
public:
    CollectedDamage() {
        project::metadata::setDamageSink([this](const project::metadata::MetadataDamage& damage) {
            told_.push_back(damage.file.accessName() + '|' + host::toUtf8(damage.problem));
        });
    }
    ~CollectedDamage() { project::metadata::setDamageSink(nullptr); }

    CollectedDamage(const CollectedDamage&) = delete;
    CollectedDamage& operator=(const CollectedDamage&) = delete;

    /// What was told since: "FILE|PROBLEM" each.
    std::vector<std::string> take() const { return std::exchange(told_, {}); }

private:
    mutable std::vector<std::string> told_;
};

}  // namespace test
