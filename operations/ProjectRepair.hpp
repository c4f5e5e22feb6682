/// Mending what can be mended safely of what is wrong with a project's metadata.
///
/// Main thread only.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "operations/XmlCheck.hpp"

namespace operations {

/// One thing that was done, or would be.
struct Repair {
    host::Path file;
    std::u16string what;                              ///< what becomes of it, such as "is removed" or "is moved to"
    std::optional<host::Path> target = std::nullopt;  ///< where it is moved to
};

/// Mends what is in `problems`: completes an interrupted change, removes what an ended process has left of its work,
/// moves damaged files of paths aside, and gives missing ones back; makes a core file anew that cannot be read, where
/// the store has its paths elsewhere, and keeps the old one aside. Says what it does, and with `isDryRun` does not.
/// @throws whatever the store throws, host::FileSystemException
std::vector<Repair> repairProject(const host::Path& root, const std::vector<Problem>& problems, bool isDryRun);

}  // namespace operations
