/// What a change that is only shown would fail at. Main thread only.
#pragma once

#include "operations/Library.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

/// Looks whether `change` of `store`, which is that of the project with the root folder `root`, could be made, and
/// makes nothing: whether the metadata folder, or the folder in which it would be made, and the files of the nodes that
/// it changes, with their folders, can be written, or may be made writable; whether those files are sound and hold
/// nothing that would get lost; and whether paths and nodes are such as stores take.
/// @throws ReadOnlyMetadataFailure, MetadataWriteFailure, as the change would
void requireFeasible(const pm::MetadataManager& store, const host::Path& root, const StoreChange& change);

/// As that, for new metadata without content.
void requireFeasible(const host::Path& root);

/// As that, for a file `file` that is to be written or replaced, and for the folders that it needs.
void requireFeasibleFile(const host::Path& file);

/// As that, for a file whose folder has to be there.
void requireFeasibleOutput(const host::Path& file);

}  // namespace operations
