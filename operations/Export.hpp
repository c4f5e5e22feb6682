/// All metadata of a project in one file.
#pragma once

#include "host/Path.hpp"
#include "operations/FileOutput.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace operations {

/// Writes everything that can be read of `store` to `file`, once it has been seen to read back as it is.
/// @param isDryRun whether all of that is done elsewhere, and `file` left as it is
/// @throws OperationError if there is no store that keeps everything in one file; whatever the store throws;
///         as `writeFile`
void exportMetadata(const project::metadata::MetadataManager& store, const host::Path& file, Existing existing,
                    bool isDryRun, Observer& observer);

}  // namespace operations
