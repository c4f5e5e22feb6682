#include "operations/NodeEdit.hpp"

#include <algorithm>

#include "project/metadata/MetadataNodeSpecification.hpp"

namespace operations {

namespace {

void fill(pm::MetadataNode& node, const NodeDraft& draft) {
    for (const auto& [key, value] : draft.attributes)
        node.put(key, value);
    for (const NodeDraft& child : draft.children)
        fill(node.createChildNode(child.name), child);
}

}  // namespace

std::optional<std::u16string> findAttribute(const pm::MetadataNode* node, const std::u16string& key) {
    if (!node)
        return std::nullopt;
    std::optional<std::u16string> found;
    pm::visitAttributes(*node, [&](const std::u16string& each, const std::u16string& value) {
        if (each == key)
            found = value;
    });
    return found;
}

NodeDraft makeDraft(const pm::MetadataNode& node) {
    NodeDraft draft{node.getName(), {}, {}};
    for (const std::u16string& key : node.getAttributeKeys())
        draft.attributes.emplace_hint(draft.attributes.end(), key, node.get(key));
    draft.children.reserve(node.getChildNodes().size());
    for (const auto& child : node.getChildNodes())
        draft.children.push_back(makeDraft(*child));
    return draft;
}

std::unique_ptr<pm::MetadataNode> makeNode(const NodeDraft& draft) {
    auto node = std::make_unique<pm::MetadataNodeSpecification>(draft.name);
    fill(*node, draft);
    return node;
}

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
