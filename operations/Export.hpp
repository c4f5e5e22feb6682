/// All metadata of a project, or of one of its paths, in one file.
#pragma once

#include <vector>

#include "operations/FileOutput.hpp"
#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataDamage.hpp"

namespace operations {

/// Writes `top` and everything below it that can be read of `store` to `file`, once that is seen to read back the same.
/// Of nodes that need no proof for that, one at a time is in memory.
/// @return the damage of each node that is left out
/// @param isDryRun whether all of that is done elsewhere, and `file` left as it is
/// @throws OperationError if there is no store that keeps everything in one file; whatever the store throws;
///         as `writeFile`
std::vector<pm::MetadataDamage> exportMetadata(const pm::MetadataManager& store, const pm::MetadataPath& top,
                                               const host::Path& file, Existing existing, bool isDryRun,
                                               Observer& observer);

}  // namespace operations
