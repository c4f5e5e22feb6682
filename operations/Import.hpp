/// What an export wrote, as the metadata of a project.
#pragma once

#include <optional>
#include <string>

#include "host/Path.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace operations {

struct ImportRequest {
    project::metadata::MetadataPath top;  ///< what is imported, with everything below it; the root path for all
    bool replace = false;                 ///< whether metadata that the project has there may go
    std::optional<std::string> store;     ///< the name of the kind of store of a new project
    std::optional<std::string> folder;    ///< its metadata folder, relative to its root folder
    bool isDryRun = false;                ///< work the change out, and leave the project as it is
};

/// Makes the project with the root folder `root`, which need not be there, hold exactly what `file` holds; or only at
/// one path and below it, which is added as the last if it is missing. What is elsewhere stays.
/// @return what was changed
/// @throws OperationError if `file` does not hold all metadata of a project, or is damaged, or the project has metadata
///         that is to stay, or `file` has not the path; whatever the store throws; host::InterruptedException while
///         nothing has been changed
StoreChange importFile(const host::Path& file, const host::Path& root, const ImportRequest& request,
                       Observer& observer);

}  // namespace operations
