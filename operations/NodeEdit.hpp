/// Looking into nodes, and changing them. Keeps no state; may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"

namespace operations {

/// The value of the attribute `key` of `node`, which may be null; no value if it has none.
std::optional<std::u16string> findAttribute(const pm::MetadataNode* node, const std::u16string& key);

/// Values by key; without a value, the attribute is not to be there.
using AttributeChanges = std::map<std::u16string, std::optional<std::u16string>>;

/// A node that can be changed in every way, as `MetadataNode` cannot. A value type; nothing is checked.
struct NodeDraft {
    std::u16string name;
    std::map<std::u16string, std::u16string> attributes;
    std::vector<NodeDraft> children;
};

NodeDraft makeDraft(const pm::MetadataNode& node);

/// @throws PutMetadataKeyFailure, PutMetadataValueFailure for what no node can hold
std::unique_ptr<pm::MetadataNode> makeNode(const NodeDraft& draft);

/// A copy of `before` with `changes`; its other attributes, its name and its children are the same.
/// @throws as `makeNode`
std::unique_ptr<pm::MetadataNode> changeAttributes(const pm::MetadataNode& before, const AttributeChanges& changes);

}  // namespace operations
