/// The content of a "monolithic" store in memory.
///
/// One thread at a time may use a tree.
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/XmlFile.hpp"
#include "stores/Names.hpp"

namespace stores::monolithic {

/// A path with or without a node, and its children in order. Copies share what is below them until it is changed.
class SharedTree {
public:
    struct Child;

    /// Null for a branch. What it says never changes.
    mutable std::shared_ptr<const MetadataNode> node;

    /// Whether somebody else has put the node, or the whole path, there, and nobody has looked at it since. It is no
    /// part of the content.
    mutable bool isUnseen = false;

    /// Why the node of the path cannot be read, null if it can or there is none.
    std::shared_ptr<const std::u16string> getProblem() const;

    void setProblem(std::shared_ptr<const std::u16string> problem);

    /// The child `element`, null if there is none. Valid until the children of this path change.
    const SharedTree* find(const PathElement& element) const;

    /// The descendant at the end of `steps`, null if there is none.
    const SharedTree* find(const std::vector<PathElement>& steps) const;
    const SharedTree* find(const MetadataPath& path) const { return find(path.getPath()); }

    /// Be it one that cannot be read.
    bool hasNode() const { return node || getProblem(); }

    /// The child `element`, to be changed; null if there is none.
    SharedTree* own(const PathElement& element);

    /// The child `element`, to be changed; added as the last one if there is none.
    SharedTree& add(const PathElement& element);

    /// Gives the child `element`, which exists, the name `newElement`, which no child has. It keeps its place.
    void rename(const PathElement& element, const PathElement& newElement);

    /// Makes room for `count` children.
    void reserve(std::size_t count);

    /// Removes the child `element` with everything below it, if it exists.
    void remove(const PathElement& element);

    /// The children in order.
    const std::vector<Child>& getChildren() const;

    /// Whether both share what is below them.
    bool sharesChildren(const SharedTree& other) const noexcept { return below_ == other.below_; }

private:
    struct Below;

    /// What is below, which nobody shares any more.
    Below& ownBelow();

    std::shared_ptr<Below> below_;  // null for most paths: they have no children
    bool isRemoved_ = false;        // then it is a gap among the children of its parent
};

struct SharedTree::Child {
    PathElement element;
    SharedTree tree;
};

/// What becomes of the elements of a file while a tree is made of them.
enum class Elements {
    stay,
    go  ///< each as soon as it was read, so that a large file does not take its memory twice
};

/// The tree of the file `file`, whose root node is `xml`. Shares the nodes of the paths.
/// @param xml as it was read; without children afterwards, if they go
/// @param lacks what nodes below `xml` lack: such an element of a path is not read
/// @param damage what is in the file and cannot be read is added to this
SharedTree fromXml(MetadataNode& xml, Elements elements, const std::vector<Lack>& lacks, const Path& file,
                   std::vector<MetadataDamage>& damage);

/// Marks as unseen what is in `now`, and was unseen or not the same in `before`.
void markUnseen(const SharedTree& now, const SharedTree* before);

/// Adds to `gone` the steps to the nodes of `before` and of what is below it that were seen and, in `now`, are missing
/// or marked as unseen.
/// @param steps to `before`; the same again afterwards
void findGone(const SharedTree& before, const SharedTree* now, std::vector<PathElement>& steps,
              std::set<std::vector<PathElement>>& gone);

/// Whether nothing in `tree` is unseen.
bool isAllSeen(const SharedTree& tree);

/// Tells `sink` what `tree` holds. The root path is that of the project.
void tellPaths(const SharedTree& tree, project::metadata::PathSink& sink);

/// Tells a file what it is told of a project: the root path with everything below it.
class XmlPaths : public project::metadata::PathSink {
public:
    explicit XmlPaths(project::metadata::XmlSink& xml) : xml_(xml) {}

    void begin(const PathElement& step, const std::shared_ptr<const MetadataNode>& node) override;
    void end() override { xml_.end(); }

private:
    project::metadata::XmlSink& xml_;
    bool hasRoot_ = false;
};

/// Tells `sink` the file that holds `tree`.
void tellXml(const SharedTree& tree, project::metadata::XmlSink& sink);

/// The root node of that file. Shares the nodes of the paths.
std::shared_ptr<const MetadataNode> toXml(const SharedTree& tree);

/// Whether both have the same paths in the same order, and share the same nodes.
bool isSameTree(const SharedTree& a, const SharedTree& b);

}  // namespace stores::monolithic
