#include "operations/NodeEdit.hpp"

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

}  // namespace operations
