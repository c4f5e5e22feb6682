/// The content of a "monolithic" store in memory.
///
/// One thread at a time may use a tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/XmlFile.hpp"

namespace stores::monolithic {

/// A path with or without a node, and its children in order. Copies share what is below them until it is changed.
class PathTree {
public:
    std::shared_ptr<const project::metadata::MetadataNode> node;  ///< null for a branch; never changes

    /// Why the node of the path cannot be read, null if it can or there is none.
    std::shared_ptr<const std::u16string> problem;

    /// Whether somebody else has put the node, or the whole path, there, and nobody has looked at it since.
    bool isUnseen = false;

    /// The child `element`, null if there is none. Valid until the children of this path change.
    PathTree* find(const project::metadata::PathElement& element) const;

    /// The descendant at `path`, null if there is none.
    PathTree* find(const project::metadata::MetadataPath& path);

    /// The child `element`, to be changed; null if there is none.
    PathTree* own(const project::metadata::PathElement& element);

    /// The child `element`, to be changed; added as the last one if there is none.
    PathTree& add(const project::metadata::PathElement& element);

    /// Removes the child `element` with everything below it, if it exists.
    void remove(const project::metadata::PathElement& element);

    struct Child {
        project::metadata::PathElement element;
        std::shared_ptr<PathTree> tree;
    };

    /// The children in order.
    const std::vector<Child>& getChildren() const;

private:
    /// Where the child `element` is, or the number of children if there is none.
    std::size_t findPlace(const project::metadata::PathElement& element) const;

    /// Enters what is at `place` into the table.
    void enterPlace(std::size_t place) const;

    mutable std::vector<Child> children_;  // those that were removed have no tree
    mutable bool hasGaps_ = false;         // whether there are such
    // Places in `children_` plus one, each near the hash of its element, 0 where nothing is. Empty while there are few
    // children, or until it is needed again.
    mutable std::vector<std::uint32_t> places_;
    mutable std::size_t last_ = 0;  // what was found last: mostly the same or the next one is wanted next
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

/// Tells `sink` the file that holds `tree`.
void tellXml(const PathTree& tree, project::metadata::XmlSink& sink);

/// The root node of that file. Shares the nodes of the paths.
std::shared_ptr<const project::metadata::MetadataNode> toXml(const PathTree& tree);

/// Whether both have the same paths in the same order, and share the same nodes.
bool isSameTree(const PathTree& a, const PathTree& b);

}  // namespace stores::monolithic
