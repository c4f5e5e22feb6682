/// Giving a path another name without looking at all others, for stores that can.
#pragma once

#include "project/Export.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace project::metadata {

/// What a `MetadataManager` may implement besides. Ask for it with a `dynamic_cast`. Without it, whoever wants to keep
/// the place of a path has to name all paths to `setPaths`.
class PROJECT_METADATA_EXPORT PathRenamer {
public:
    virtual ~PathRenamer() = default;

    /// Gives `path`, below which there is nothing, `element` for its last step. It keeps its node and its place among
    /// its siblings. That is one batch, of which others hear as of the removal of one path and the addition of another.
    /// @throws MetadataWriteFailure naming a file of the store, if `path` does not exist, is the root path or has paths
    ///         below it, or if there is a path already that has what it would become; and, as the operations that add
    ///         and remove paths, whatever the store throws
    virtual void renamePath(const MetadataPath& path, const PathElement& element) = 0;

protected:
    PathRenamer() = default;
    PathRenamer(const PathRenamer&) = default;
    PathRenamer& operator=(const PathRenamer&) = default;
};

}  // namespace project::metadata
