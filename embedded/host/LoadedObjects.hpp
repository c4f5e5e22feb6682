/// What is loaded into this process. Every function may be called from any thread.
#pragma once

#include <string_view>

namespace host {

/// Whether the program or a shared object loaded into it, other than this library, was linked with a shared object
/// whose file name starts with `library`.
bool isLinkedByOthers(std::string_view library);

}  // namespace host
