// The file format: the core file "Project.xml", whose root node holds the paths as nested elements.
//
//     <Project MetadataType="monolithic">
//         <Path Location="src" Type="Folder">
//             <Node>
//                 <Info Kind="folder"/>
//             </Node>
//             <Path Location="main.c" Type="File"/>
//         </Path>
//     </Project>
//
// PathXml.hpp says what an element "Path" holds; the root element holds a "Node" if the root path has one. The order of
// the elements is the order of the paths.

#include "stores/monolithic/PathTree.hpp"

#include <algorithm>
#include <unordered_map>

#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

namespace stores::monolithic {

using project::metadata::MetadataDamage;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using store_support::equalTrees;
using store_support::getPathElement;
using store_support::getReadProblem;
using store_support::Lack;
using store_support::nodeElementName;
using store_support::pathElementName;
using store_support::projectElementName;
using store_support::putPathElement;
using store_support::survivesXml;

namespace {

/// Adds what `xml` holds below its own path.
class Reader {
public:
    Reader(const host::Path& file, const std::vector<Lack>& lacks, std::vector<MetadataDamage>& damage)
        : file_(file), damage_(damage) {
        for (const Lack& lack : lacks) {
            lacking_.try_emplace(lack.node, std::make_shared<const std::u16string>(lack.problem));
            damage.push_back({file, lack.problem});
        }
    }

    void fill(PathTree& tree, const MetadataNode& xml) {
        attempt(
            [&] {
                const auto node = store_support::getNode(xml, file_);
                tree.problem = node ? findLack(*node) : nullptr;
                if (!tree.problem)
                    tree.node = node;
            },
            &tree);
        for (const auto& child : xml.getChildNodes()) {
            if (child->getName() != nodeElementName && lacking_.count(child.get()) == 0)
                attempt([&] { add(tree, *child); });
        }
    }

private:
    void add(PathTree& tree, const MetadataNode& xml) {
        const PathElement element = getPathElement(xml, file_);
        if (tree.find(element))
            raise<MetadataReadFailure>(file_.text(), u"a path element stands twice under one parent in it");
        fill(tree.add(element), xml);
    }

    /// The first in the tree `node`, null if there is none.
    std::shared_ptr<const std::u16string> findLack(const MetadataNode& node) const {
        if (lacking_.empty())
            return nullptr;
        const auto entry = lacking_.find(&node);
        if (entry != lacking_.end())
            return entry->second;
        for (const auto& child : node.getChildNodes()) {
            if (auto lack = findLack(*child))
                return lack;
        }
        return nullptr;
    }

    template <class Step>
    void attempt(const Step& step, PathTree* damaged = nullptr) {
        try {
            step();
        } catch (const MetadataReadFailure& error) {
            damage_.push_back({file_, getReadProblem(error)});
            if (damaged)
                damaged->problem = std::make_shared<const std::u16string>(damage_.back().problem);
        }
    }

    const host::Path& file_;
    std::unordered_map<const MetadataNode*, std::shared_ptr<const std::u16string>> lacking_;
    std::vector<MetadataDamage>& damage_;
};

/// An element that may have any node as a child. A copy of each would only be made to be written and thrown away.
class SharingElement : public MetadataNodeSpecification {
public:
    using MetadataNodeSpecification::MetadataNodeSpecification;

    const std::vector<std::shared_ptr<MetadataNode>>& getChildNodes() const override { return children_; }

    void add(std::shared_ptr<MetadataNode> child) { children_.push_back(std::move(child)); }

private:
    std::vector<std::shared_ptr<MetadataNode>> children_;
};

/// The element of a path with the attributes that nearly all have.
MetadataNodeSpecification makePathPattern() {
    MetadataNodeSpecification pattern(pathElementName);
    putPathElement(pattern, PathElement(u"", u""));
    return pattern;
}

/// Elements to copy: copies of a copy share its name and its keys.
struct Patterns {
    const MetadataNodeSpecification node{nodeElementName};
    const MetadataNodeSpecification path{static_cast<const MetadataNode&>(makePathPattern())};
    const MetadataNodeSpecification pathWithEscapes{pathElementName};
};

void fill(SharingElement& xml, const PathTree& tree, const Patterns& patterns) {
    if (tree.node) {
        const auto element = std::make_shared<SharingElement>(patterns.node);
        element->add(tree.node);
        xml.add(element);
    }
    for (const PathTree::Child& child : tree.getChildren()) {
        const bool isPlain = survivesXml(child.element.getType()) && survivesXml(child.element.getLocation());
        const auto element = std::make_shared<SharingElement>(isPlain ? patterns.path : patterns.pathWithEscapes);
        putPathElement(*element, child.element);
        fill(*element, child.tree, patterns);
        xml.add(element);
    }
}

}  // namespace

PathTree PathTree::clone() const {
    PathTree copy;
    copy.node = node;
    copy.problem = problem;
    copy.isUnseen = isUnseen;
    for (const Child& child : getChildren())
        copy.add(child.element) = child.tree.clone();
    return copy;
}

PathTree* PathTree::find(const PathElement& element) const {
    const auto entry = entries_.find(element);
    return entry == entries_.end() ? nullptr : entry->second.tree.get();
}

PathTree* PathTree::find(const MetadataPath& path) {
    PathTree* tree = this;
    for (const PathElement& element : path.getPath()) {
        tree = tree->find(element);
        if (!tree)
            return nullptr;
    }
    return tree;
}

PathTree& PathTree::add(const PathElement& element) {
    const std::size_t position = order_.empty() ? 0 : order_.rbegin()->first + 1;
    const auto [entry, isNew] = entries_.try_emplace(element, Entry{position, nullptr});
    if (isNew) {
        entry->second.tree = std::make_unique<PathTree>();
        order_.emplace(position, entry);
    }
    return *entry->second.tree;
}

void PathTree::remove(const PathElement& element) {
    const auto entry = entries_.find(element);
    if (entry == entries_.end())
        return;
    order_.erase(entry->second.position);
    entries_.erase(entry);
}

std::vector<PathTree::Child> PathTree::getChildren() const {
    std::vector<Child> children;
    children.reserve(order_.size());
    for (const auto& [position, entry] : order_)
        children.push_back({entry->first, *entry->second.tree});
    return children;
}

PathTree fromXml(const MetadataNode& xml, const std::vector<Lack>& lacks, const host::Path& file,
                 std::vector<MetadataDamage>& damage) {
    PathTree tree;
    Reader(file, lacks, damage).fill(tree, xml);
    return tree;
}

void markUnseen(PathTree& now, const PathTree* before) {
    const bool isSame = before && equalTrees(now.node.get(), before->node.get());
    now.isUnseen = !isSame || before->isUnseen;
    for (const PathTree::Child& child : now.getChildren())
        markUnseen(child.tree, before ? before->find(child.element) : nullptr);
}

bool isAllSeen(const PathTree& tree) {
    const auto children = tree.getChildren();
    return !tree.isUnseen && std::all_of(children.begin(), children.end(),
                                         [](const PathTree::Child& child) { return isAllSeen(child.tree); });
}

std::unique_ptr<const MetadataNode> toXml(const PathTree& tree) {
    auto xml = std::make_unique<SharingElement>(projectElementName);
    xml->put(project::metadata::metadataTypeKey(), monolithicName);
    fill(*xml, tree, Patterns());
    return xml;
}

bool isSameTree(const PathTree& a, const PathTree& b) {
    const auto childrenA = a.getChildren();
    const auto childrenB = b.getChildren();
    return a.node == b.node && std::equal(childrenA.begin(), childrenA.end(), childrenB.begin(), childrenB.end(),
                                          [](const PathTree::Child& x, const PathTree::Child& y) {
                                              return x.element == y.element && isSameTree(x.tree, y.tree);
                                          });
}

}  // namespace stores::monolithic
