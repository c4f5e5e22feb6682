/// What every store that is a `PathRenamer` has to do alike.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include "host/Path.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace store_support {

/// What `path` becomes with `element` for its last step; the root path stays what it is.
project::metadata::MetadataPath replaceLeaf(const project::metadata::MetadataPath& path,
                                            const project::metadata::PathElement& element);

/// What a store has found of a path that is to be renamed.
struct Renaming {
    bool isThere;
    bool hasPathsBelow;
    bool isTargetThere;
};

/// Checks that `path` can become `target`.
/// @return false if it is called that already
/// @throws project::metadata::MetadataWriteFailure naming `file` and what is in the way
bool requireRenamable(const project::metadata::MetadataPath& path, const project::metadata::MetadataPath& target,
                      const Renaming& found, const host::Path& file);

}  // namespace store_support
