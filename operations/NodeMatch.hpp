/// Which child node of one node is which of another.
///
/// Keeps no state; may be called from any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "project/metadata/MetadataNode.hpp"

namespace operations {

using Nodes = std::vector<std::shared_ptr<project::metadata::MetadataNode>>;

/// For each of `before` the number of the one in `after` that it has become, if any. First come equal ones, as many as
/// can be matched without crossing (a longest common subsequence); then, in each gap between those, nodes of the same
/// name in their order.
std::vector<std::optional<std::size_t>> matchNodes(const Nodes& before, const Nodes& after);

}  // namespace operations
