/// The three-way merge of trees of metadata, by path and attribute.
///
/// What only one side has changed, added or removed is taken. Both changing the same differently, one changing what the
/// other removed, and both adding a path with different values are conflicts; NodeMerge.hpp says how they are marked. A
/// path that is changed on one side and removed on the other stays with everything below it.
///
/// No function keeps state.
#pragma once

#include <vector>

#include "operations/MetadataTree.hpp"
#include "operations/NodeMerge.hpp"

namespace operations {

struct MergeResult {
    MetadataTree tree;  ///< of the form of "ours", or of "theirs" if that is empty
    std::vector<Conflict> conflicts;
};

/// @throws OperationError for files of different forms; host::InterruptedException
MergeResult mergeTrees(const MetadataTree& base, const MetadataTree& ours, const MetadataTree& theirs);

}  // namespace operations
