/// What an export wrote, as the metadata of a project.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

struct ImportRequest {
    pm::MetadataPath top;              ///< what is imported, with everything below it; the root path for all
    bool replace = false;              ///< whether metadata that the project has there may go
    std::optional<std::string> store;  ///< the name of the kind of store of a new project, or in place of a damaged one
    std::vector<std::string> options;  ///< for that store, as `setOptions` takes them
    std::optional<std::string> folder;  ///< the metadata folder of a new project, relative to its root folder
    bool isDryRun = false;              ///< work the change out, and leave the project as it is
};

/// What was done.
struct Import {
    StoreChange change;
    std::optional<host::Path> damaged;  ///< where the metadata folder is now that was damaged
};

/// Makes the project with the root folder `root`, which need not be there, hold exactly what `file` holds; or only at
/// one path and below it, which is added as the last if it is missing. What is elsewhere stays. Metadata that is
/// damaged, and may go as a whole, is moved aside and made anew (`restoreProject`).
/// @throws OperationError if `file` does not hold all metadata of a project, or is damaged, or the project has metadata
///         that is to stay, or `file` has not the path; whatever the store throws; host::InterruptedException while
///         nothing has been changed
Import importFile(const host::Path& file, const host::Path& root, const ImportRequest& request, Observer& observer);

}  // namespace operations
