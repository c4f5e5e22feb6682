#include "operations/NodeEdit.hpp"

#include <algorithm>

#include "project/metadata/MetadataNodeSpecification.hpp"

namespace operations {

namespace pm = project::metadata;

std::unique_ptr<pm::MetadataNode> changeAttributes(const pm::MetadataNode& before, const AttributeChanges& changes) {
    // A node cannot drop an attribute, so a new one takes over what is to stay.
    auto node = std::make_unique<pm::MetadataNodeSpecification>(before.getName());
    for (const std::u16string& key : before.getAttributeKeys()) {
        if (changes.find(key) == changes.end())
            node->put(key, before.get(key));
    }
    for (const auto& [key, value] : changes) {
        if (value)
            node->put(key, *value);
    }
    for (const auto& child : before.getChildNodes())
        node->createChildNode(child->getName()).copy(*child);
    return node;
}

bool equalNodes(const pm::MetadataNode& a, const pm::MetadataNode& b) {
    const auto keys = a.getAttributeKeys();
    const auto& childrenA = a.getChildNodes();
    const auto& childrenB = b.getChildNodes();
    const auto isEqualAt = [&](const std::u16string& key) { return a.get(key) == b.get(key); };
    return a.getName() == b.getName() && keys == b.getAttributeKeys() &&
           std::all_of(keys.begin(), keys.end(), isEqualAt) &&
           std::equal(childrenA.begin(), childrenA.end(), childrenB.begin(), childrenB.end(),
                      [](const auto& childA, const auto& childB) { return equalNodes(*childA, *childB); });
}

}  // namespace operations
