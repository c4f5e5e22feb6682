/// Metadata for every file and folder below a folder.
#pragma once

#include <cstddef>

#include "host/Path.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

struct ScanResult {
    StoreChange change;
    std::size_t files = 0;    ///< how many were found: all but the folders
    std::size_t folders = 0;  ///< the scanned one does not count
};

/// Describes what lies in `folder` in the metadata of the project with the root folder `root` (ScanUpdate.hpp). Left
/// out are everything named ".git", the metadata folder, and what repairs and conversions put beside it.
/// @throws OperationError, also for a folder that is not there or the metadata folder itself; as `scanFolder` and
///         `applyChange`
ScanResult scanInto(const host::Path& root, const host::Path& folder, bool isDryRun, Observer& observer);

}  // namespace operations
