/// What a metadata file means, told by a reader that shares nothing with the library's.
#pragma once

#include <string>

namespace test {

/// The tree in `file` as `render` would show it, or the error in words: "unreadable", "refused key" or "refused value",
/// the latter two with the key or value behind a space. With `isRootOnly` just the root.
std::u16string readByOracle(const std::string& file, bool isRootOnly);

/// The same for what the library reads, and for how it behaves then.
std::u16string readByLibrary(const std::string& file, bool isRootOnly);

}  // namespace test
