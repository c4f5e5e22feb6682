/// One of the user's settings replaced for a while by what somebody has chosen.
#pragma once

#include <memory>
#include <string>

#include "host/SettingsService.hpp"

namespace operations {

/// As long as an object lives, its `value` is that of `key` in `group`, in the whole process. All other settings show
/// through; where the host has no settings at all they are empty, which the library takes as not set. Objects go in the
/// opposite order of that in which they came.
class SettingsOverride {
public:
    SettingsOverride(const std::string& group, const std::string& key, const std::u16string& value);
    ~SettingsOverride();

    SettingsOverride(const SettingsOverride&) = delete;
    SettingsOverride& operator=(const SettingsOverride&) = delete;

private:
    std::shared_ptr<const host::SettingsGroup> below_;
};

}  // namespace operations
