/// Looking for everything that is wrong with a project's metadata, and mending what can be mended safely.
///
/// Main thread only.
#pragma once

#include <string>
#include <vector>

#include "cli/XmlCheck.hpp"
#include "host/Path.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace cli {

struct CheckResult {
    std::vector<Problem> problems;   ///< by file and line
    std::vector<host::Path> others;  ///< files in the metadata folder that no store makes
    std::size_t files = 0;           ///< how many were read
    std::size_t paths = 0;           ///< the root path counts if it has a node
};

/// Reads every file in the metadata folder of the project with the root folder `root`, and every path and node of its
/// store. Nothing is changed: while a change that was interrupted waits to be completed, which opening the store would
/// do, the store stays closed.
/// @throws CommandError if it is no project; host::InterruptedException; whatever the listing of folders throws
CheckResult checkProject(const host::Path& root);

/// One thing that was done, or would be.
struct Repair {
    host::Path file;
    std::string what;  ///< what becomes of it, such as "is moved to ...", safe to show
};

/// Mends what is in `problems`: completes an interrupted change, removes what an ended process has left of its work,
/// moves damaged files of paths aside, and gives missing ones back. Says what it does, and with `isDryRun` does not.
/// @throws whatever the store throws, host::FileSystemException
std::vector<Repair> repairProject(const host::Path& root, const std::vector<Problem>& problems, bool isDryRun);

}  // namespace cli
