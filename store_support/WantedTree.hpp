/// What a list of paths amounts to as a tree.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "store_support/ChildNumbers.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// The paths of a list with their ancestors, each once, numbered so that a parent comes before its children; 0 is the
/// root path. Does not change, and may be used by several threads.
class WantedTree {
public:
    using Index = std::size_t;

    /// @param paths must outlive the object
    explicit WantedTree(const std::vector<MetadataPath>& paths);

    Index getSize() const noexcept { return children_.size(); }

    /// The children of the path `parent`, in the order in which they are first needed.
    const std::vector<Index>& getChildren(Index parent) const { return children_[parent]; }

    /// The last step of a path that is not the root path.
    const PathElement& getElement(Index index) const { return *elements_[index]; }

    /// No value if the path is not wanted.
    std::optional<Index> find(Index parent, const PathElement& element) const;

    /// Whether `path` is in the list, or an ancestor of one that is; the root path has to be in it itself.
    bool has(const MetadataPath& path) const;

private:
    std::vector<const PathElement*> elements_;  // null for the root path
    std::vector<std::vector<Index>> children_;
    ChildNumbers indices_;
    bool hasRoot_ = false;  // whether the root path is in the list
};

}  // namespace store_support
