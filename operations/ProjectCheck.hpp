/// Looking for everything that is wrong with a project's metadata.
///
/// Main thread only.
#pragma once

#include <vector>

#include "operations/Progress.hpp"
#include "operations/XmlCheck.hpp"

namespace operations {

struct CheckResult {
    std::vector<Problem> problems;   ///< by file and line
    std::vector<host::Path> others;  ///< files in the metadata folder that no store makes
    std::size_t files = 0;           ///< how many were read
    std::size_t paths = 0;           ///< the root path counts if it has a node
};

/// Reads every file in the metadata folder of the project with the root folder `root`, and every path and node of its
/// store. Nothing is changed: while a change that was interrupted waits to be completed, which opening the store would
/// do, the store stays closed.
/// @throws OperationError if it is no project; host::InterruptedException; whatever the listing of folders throws
CheckResult checkProject(const host::Path& root, Observer& observer);

}  // namespace operations
