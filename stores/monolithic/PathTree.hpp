/// The content of a "monolithic" store in memory.
///
/// One thread at a time may use a tree.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "store_support/XmlFile.hpp"

namespace stores::monolithic {

/// A path with or without a node, and its children in order.
class PathTree {
public:
    std::shared_ptr<project::metadata::MetadataNode> node;  ///< null for a branch

    /// Why the node of the path cannot be read, null if it can or there is none.
    std::shared_ptr<const std::u16string> problem;

    /// Whether somebody else has put the node, or the whole path, there, and nobody has looked at it since.
    bool isUnseen = false;

    PathTree() = default;
    PathTree(PathTree&&) = default;
    PathTree& operator=(PathTree&&) = default;

    /// A copy that shares the nodes.
    PathTree clone() const;

    /// The child `element`, null if there is none.
    PathTree* find(const project::metadata::PathElement& element) const;

    /// The descendant at `path`, null if there is none.
    PathTree* find(const project::metadata::MetadataPath& path);

    /// The child `element`, added as the last one if there is none.
    PathTree& add(const project::metadata::PathElement& element);

    /// Removes the child `element` with everything below it, if it exists.
    void remove(const project::metadata::PathElement& element);

    /// A child, valid until it is removed.
    struct Child {
        const project::metadata::PathElement& element;
        PathTree& tree;
    };

    /// The children in order.
    std::vector<Child> getChildren() const;

private:
    struct Entry {
        std::size_t position;
        std::unique_ptr<PathTree> tree;
    };
    using Entries = std::map<project::metadata::PathElement, Entry>;

    Entries entries_;
    std::map<std::size_t, Entries::const_iterator> order_;  // by position
};

/// The tree of the file `file`, whose root node is `xml`.
/// @param lacks what nodes below `xml` lack: such an element of a path is not read
/// @param damage what is in the file and cannot be read is added to this
PathTree fromXml(const project::metadata::MetadataNode& xml, const std::vector<store_support::Lack>& lacks,
                 const host::Path& file, std::vector<project::metadata::MetadataDamage>& damage);

/// Marks as unseen what is in `now`, and was unseen or not the same in `before`.
void markUnseen(PathTree& now, const PathTree* before);

/// Whether nothing in `tree` is unseen.
bool isAllSeen(const PathTree& tree);

/// The root node of a file that holds `tree`. Shares the nodes of the paths.
std::unique_ptr<const project::metadata::MetadataNode> toXml(const PathTree& tree);

/// Whether both have the same paths in the same order, and share the same nodes.
bool isSameTree(const PathTree& a, const PathTree& b);

}  // namespace stores::monolithic
