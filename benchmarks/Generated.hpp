/// What the benchmarks work on: generated trees, nodes and paths, the same in each run.
///
/// The functions keep no state and may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace benchmarks {

/// `value` in decimal digits.
std::u16string number(std::uint64_t value);

/// `count` paths: 10 folders, in each of them others, in each of those at most 100 files. A path comes
/// after its parent.
std::vector<project::metadata::MetadataPath> makePaths(std::size_t count);

/// A node with four attributes and a child with two.
std::shared_ptr<project::metadata::MetadataNode> makeNode(std::uint64_t revision);

/// A tree of exactly `nodes` nodes with 3.5 attributes each on average, as projects hold them: each kind of node has
/// its own keys, names and UUIDs are unique, numbers vary, some texts are long, some not ASCII, some have to be
/// escaped. About 95 bytes a node as a file.
std::unique_ptr<project::metadata::MetadataNode> makeTree(std::size_t nodes);

}  // namespace benchmarks
