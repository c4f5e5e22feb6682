/// What a metadata file means, told by a reader that shares nothing with the library's.
#pragma once

#include <string>

namespace test {

/// The tree in `file` as `render` would show it, or the error in words: "unreadable", "refused key" or "refused value",
/// the latter two with the key or value behind a space. With `isRootOnly` just the root.
std::u16string readByOracle(const std::string& file, bool isRootOnly);

/// Whether `file`, which can be read, holds anything but elements, their attributes and blanks, told by the tree that
/// libxml2 makes of it.
bool holdsMoreThanElements(const std::string& file);

/// As `readByOracle`, for what the library reads, and for how it behaves then.
std::u16string readByLibrary(const std::string& file, bool isRootOnly);

}  // namespace test
