/// All metadata of a project, or of one of its paths, in one file.
#pragma once

#include "operations/FileOutput.hpp"
#include "operations/Library.hpp"
#include "operations/Progress.hpp"

namespace operations {

/// Writes `top` and everything below it that can be read of `store` to `file`, once that is seen to read back the same.
/// @param isDryRun whether all of that is done elsewhere, and `file` left as it is
/// @throws OperationError if there is no store that keeps everything in one file; whatever the store throws;
///         as `writeFile`
void exportMetadata(const pm::MetadataManager& store, const pm::MetadataPath& top, const host::Path& file,
                    Existing existing, bool isDryRun, Observer& observer);

}  // namespace operations
