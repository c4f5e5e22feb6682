/// Settling the conflicts that a merge has marked in nodes (NodeMerge.hpp).
///
/// Keeps no state; may be called from any thread.
#pragma once

#include <cstddef>
#include <memory>

#include "operations/Library.hpp"

namespace operations {

enum class MergeSide { ours, theirs };

struct Settlement {
    std::unique_ptr<pm::MetadataNode> node;
    std::size_t count = 0;  ///< how many conflicts there were
};

/// `node` as it is if the side `side` is right in all conflicts that are marked in it and in its child nodes. The marks
/// go. Attributes, names and removed child nodes are as on that side; an order is that of ours, which the merge kept.
/// @throws OperationError for a mark that does not say what that side had: of child nodes that could not be told apart,
///         of the order of theirs, of versions of different paths, and of the node itself, if the side has removed it,
///         maybe with its path
Settlement settleConflicts(const pm::MetadataNode& node, MergeSide side);

}  // namespace operations
