/// What is loaded into this process. Every function may be called from any thread.
#pragma once

#include <string_view>

namespace host {

/// Whether the program or a shared object loaded into it, other than this library and those whose file names start with
/// `family`, was linked with a library whose file name starts with `family`.
bool isLinkedByOthers(std::string_view family);

}  // namespace host
