/// One of the user's settings replaced by what the command line says.
#pragma once

#include <string>

namespace operations {

/// Makes `value` the value of `key` in `group` until the process ends. All other settings show through; where the host
/// has no settings at all they are empty, which the library takes as not set. Called before any store is made.
void overrideSetting(const std::string& group, const std::string& key, const std::u16string& value);

}  // namespace operations
