/// Settings for one test.
#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/SettingsService.hpp"

namespace test {

/// Settings held in memory; a group or key that it does not hold is an error.
class MemorySettings : public host::SettingsGroup {
public:
    using Values = std::map<std::pair<std::string, std::string>, std::u16string>;

    explicit MemorySettings(Values values, std::string group = {})
        : values_(std::move(values)), group_(std::move(group)) {}

    std::shared_ptr<const host::SettingsGroup> getGroup(const std::string& fullName) const override {
        return std::make_shared<MemorySettings>(values_, fullName);
    }

    std::u16string getText(const std::string& key, const std::string& /*qualifier*/) const override {
        const auto found = values_.find({group_, key});
        if (found == values_.end())
            throw std::out_of_range("no setting " + group_ + "." + key);
        return found->second;
    }

private:
    Values values_;
    std::string group_;
};

/// Replaces the settings of the process for as long as it lives.
class SettingsOverride {
public:
    explicit SettingsOverride(std::shared_ptr<const host::SettingsGroup> root)
        : before_(host::SettingsService::getSettingsRoot()) {
        host::SettingsService::setSettingsRoot(std::move(root));
    }

    explicit SettingsOverride(MemorySettings::Values values)
        : SettingsOverride(std::make_shared<MemorySettings>(std::move(values))) {}

    ~SettingsOverride() { host::SettingsService::setSettingsRoot(before_); }

    SettingsOverride(const SettingsOverride&) = delete;
    SettingsOverride& operator=(const SettingsOverride&) = delete;

private:
    std::shared_ptr<const host::SettingsGroup> before_;
};

}  // namespace test
