#include "project/metadata/MetadataNodeSpecification.hpp"

#include <algorithm>
#include <utility>

#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace project::metadata {

const std::u16string& getDefaultMetadataNodeName() {
    static const std::u16string name = u"Info";
    return name;
}

MetadataNodeSpecification::MetadataNodeSpecification() : name_(getDefaultMetadataNodeName()) {}

MetadataNodeSpecification::MetadataNodeSpecification(std::u16string name) : name_(std::move(name)) {}

MetadataNodeSpecification::MetadataNodeSpecification(const MetadataNode& other) : name_(other.getName()) {
    MetadataNodeSpecification::copy(other);
}

MetadataNodeSpecification::MetadataNodeSpecification(const MetadataNodeSpecification& other)
    : MetadataNodeSpecification(static_cast<const MetadataNode&>(other)) {}

MetadataNodeSpecification::~MetadataNodeSpecification() = default;

const std::u16string& MetadataNodeSpecification::get(std::u16string key) const {
    static const std::u16string absent;
    const auto found = attributes_.find(key);
    return found == attributes_.end() ? absent : found->second;
}

void MetadataNodeSpecification::put(std::u16string key, std::u16string value) {
    if (!isValidKey(key))
        raise<PutMetadataKeyFailure>(key);
    if (!isValidAttribute(value))
        raise<PutMetadataValueFailure>(value);
    attributes_.insert_or_assign(std::move(key), std::move(value));
}

std::vector<std::u16string> MetadataNodeSpecification::getAttributeKeys() const {
    std::vector<std::u16string> keys;
    keys.reserve(attributes_.size());
    for (const auto& attribute : attributes_)
        keys.push_back(attribute.first);
    return keys;
}

const std::u16string& MetadataNodeSpecification::getName() const {
    return name_;
}

const std::vector<std::shared_ptr<MetadataNode>>& MetadataNodeSpecification::getChildNodes() const {
    return children_;
}

MetadataNode& MetadataNodeSpecification::createChildNode(std::u16string name) {
    children_.push_back(std::make_shared<MetadataNodeSpecification>(std::move(name)));
    return *children_.back();
}

MetadataNode& MetadataNodeSpecification::createChildNode() {
    return createChildNode(getDefaultMetadataNodeName());
}

void MetadataNodeSpecification::remove(const MetadataNode& node) {
    // The removed children die only after the list is whole again: their destruction may run into this node.
    const auto kept = std::stable_partition(children_.begin(), children_.end(),
                                            [&](const auto& child) { return child.get() != &node; });
    const std::vector<std::shared_ptr<MetadataNode>> removed(std::make_move_iterator(kept),
                                                             std::make_move_iterator(children_.end()));
    children_.erase(kept, children_.end());
}

void MetadataNodeSpecification::copy(const MetadataNode& source) {
    for (const std::u16string& key : source.getAttributeKeys())
        put(key, source.get(key));
    for (const std::shared_ptr<MetadataNode>& child : source.getChildNodes())
        createChildNode(child->getName()).copy(*child);
}

}  // namespace project::metadata
