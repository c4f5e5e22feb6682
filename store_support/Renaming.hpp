/// What every store that is a `PathRenamer` has to do alike.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include "store_support/Library.hpp"

namespace store_support {

/// What `path` becomes with `element` for its last step; the root path stays what it is.
MetadataPath replaceLeaf(const MetadataPath& path, const PathElement& element);

/// What a store has found of a path that is to be renamed.
struct Renaming {
    bool isThere;
    bool hasPathsBelow;
    bool isTargetThere;
};

/// Checks that `path` can become `target`.
/// @return false if it is called that already
/// @throws MetadataWriteFailure naming `file` and what is in the way
bool requireRenamable(const MetadataPath& path, const MetadataPath& target, const Renaming& found, const Path& file);

}  // namespace store_support
