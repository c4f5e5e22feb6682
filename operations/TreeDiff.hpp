/// What is different between two trees of metadata, path by path and attribute by attribute.
///
/// No function keeps state. A difference points into the trees that were compared, which must outlive it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "operations/MetadataTree.hpp"

namespace operations {

struct AttributeDiff {
    std::u16string key;
    std::optional<std::u16string> before, after;
};

/// A node that is different; null on the side where it is not there.
struct NodeDiff {
    const pm::MetadataNode* before = nullptr;
    const pm::MetadataNode* after = nullptr;
    std::size_t position = 0;  ///< among its siblings of the same name, from 1; 0 if it is the only one, or has none
    bool isMoved = false;      ///< to another place among its siblings
    std::vector<AttributeDiff> attributes;  ///< by key; only if it is on both sides
    std::vector<NodeDiff> children;         ///< those that are different or moved; only if it is on both sides
};

/// A path that is different, other than by what is below it; null on the side where it is not there.
struct PathDiff {
    pm::MetadataPath path;
    const PathTree* before = nullptr;
    const PathTree* after = nullptr;
    bool isMoved = false;                   ///< to another place among its siblings
    std::vector<AttributeDiff> attributes;  ///< "Place", if both sides are files that say one
    std::optional<NodeDiff> node;
};

/// All differences; every path before those below it, and what was removed where it was. Of files of different paths,
/// each path is a difference.
/// @throws AddressError if one is a file of one path, which does not say what lies above that, and the other is none
std::vector<PathDiff> diffTrees(const MetadataTree& before, const MetadataTree& after);

}  // namespace operations
