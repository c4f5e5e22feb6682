/// Metadata for every file and folder below a folder.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "operations/Progress.hpp"
#include "operations/ScanUpdate.hpp"

namespace operations {

struct ScanRequest {
    std::optional<host::Path> folder;  ///< what is described; without, the project's root folder
    ScanWish wish;
    bool heedGit = true;  ///< whether to leave out what git ignores
    /// Whether to leave out what has the name `name` and lies at `place`, relative to the folder; may be empty.
    std::function<bool(const std::u16string& name, const std::u16string& place)> isExcluded;
    bool isDryRun = false;
};

struct ScanResult {
    ScanChange change;
    std::size_t files = 0;              ///< how many were found: all but the folders
    std::size_t folders = 0;            ///< the scanned one, and those that lead to it, do not count
    std::vector<std::string> problems;  ///< for each folder that could not be read, a sentence
    /// Why the files will not be known again that are moved before the next scan; no value if they will.
    std::optional<std::string> notRemembered;
};

/// Describes what lies in a folder in the metadata of the project with the root folder `root` (ScanUpdate.hpp). A
/// folder below `root` has its place there; any other stands for the root folder. Left out are everything named ".git",
/// the metadata folder, what repairs and conversions put beside it, and what the request says.
/// @throws OperationError, also for a folder that is not there or is in the metadata folder; as `scanFolder` and
///         `applyChange`
ScanResult scanInto(const host::Path& root, const ScanRequest& request, Observer& observer);

}  // namespace operations
