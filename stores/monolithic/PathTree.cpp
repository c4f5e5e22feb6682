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

#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "stores/common/PathXml.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

namespace stores::monolithic {

using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;

namespace {

void fill(PathTree& tree, const MetadataNode& xml, const host::Path& file) {
    tree.node = getNode(xml, file);
    for (const auto& child : xml.getChildNodes()) {
        if (child->getName() == nodeElementName)
            continue;
        const PathElement element = getPathElement(*child, file);
        if (tree.find(element)) {
            raise<MetadataReadFailure>(file.text(), u"the path element \"" + element.getType() + u":" +
                                                        element.getLocation() + u"\" stands twice under one parent");
        }
        fill(tree.add(element), *child, file);
    }
}

void fill(MetadataNode& xml, const PathTree& tree) {
    putNode(xml, tree.node.get());
    for (const PathTree::Child& child : tree.getChildren()) {
        MetadataNode& childXml = xml.createChildNode(pathElementName);
        putPathElement(childXml, child.element);
        fill(childXml, child.tree);
    }
}

}  // namespace

PathTree* PathTree::find(const PathElement& element) const {
    const auto entry = entries_.find(element);
    return entry == entries_.end() ? nullptr : entry->second.tree.get();
}

const PathTree* PathTree::find(const MetadataPath& path) const {
    const PathTree* tree = this;
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

std::unique_ptr<PathTree> fromXml(const MetadataNode& xml, const host::Path& file) {
    auto tree = std::make_unique<PathTree>();
    fill(*tree, xml, file);
    return tree;
}

std::unique_ptr<MetadataNode> toXml(const PathTree& tree) {
    auto xml = std::make_unique<MetadataNodeSpecification>(projectElementName);
    xml->put(project::metadata::metadataTypeKey(), monolithicName);
    fill(*xml, tree);
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
