/// Telling of damage in what is read again and again, such as the rows of a table.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "store_support/StoreErrors.hpp"

namespace store_support {

/// One thread at a time may use an object.
class DamageTeller {
public:
    /// Tells of `damage`, unless it has done so.
    /// @param version of what is damaged; the same damage of another version is told, too
    void tell(const project::metadata::MetadataDamage& damage, std::int64_t version) {
        if (told_.emplace(damage.problem, version).second)
            reportDamage(damage);
    }

private:
    std::set<std::pair<std::u16string, std::int64_t>> told_;
};

}  // namespace store_support
