#include "project/metadata/MetadataNodeSpecification.hpp"

#include <algorithm>
#include <optional>
#include <typeinfo>

#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/SharedNode.hpp"
#include "project/metadata/detail/NodeForm.hpp"
#include "project/metadata/detail/NodeMemory.hpp"

namespace project::metadata {

const std::u16string& getDefaultMetadataNodeName() {
    static const auto& name = *new std::u16string(u"Info");
    return name;
}

namespace {

std::shared_ptr<const detail::NodeForm> makeForm(std::u16string name) {
    return std::make_shared<detail::NodeForm>(detail::NodeForm{std::move(name), {}});
}

std::shared_ptr<const detail::NodeForm> getDefaultForm() {
    static const auto& form = *new auto(makeForm(getDefaultMetadataNodeName()));
    return form;
}

/// Where the form has `key`, if it does.
std::optional<std::size_t> findKey(const detail::NodeForm& form, const std::u16string& key) {
    const auto found = std::lower_bound(form.keys.begin(), form.keys.end(), key);
    if (found == form.keys.end() || *found != key)
        return std::nullopt;
    return static_cast<std::size_t>(found - form.keys.begin());
}

}  // namespace

MetadataNodeSpecification::MetadataNodeSpecification() : form_(getDefaultForm()) {}

MetadataNodeSpecification::MetadataNodeSpecification(std::u16string name) : form_(makeForm(std::move(name))) {}

MetadataNodeSpecification::MetadataNodeSpecification(const MetadataNode& copied) {
    const MetadataNode& other = getShared(copied);
    // What is in a node of this very type passed the checks of `put`.
    const auto* const same = typeid(other) == typeid(MetadataNodeSpecification)
                                 ? static_cast<const MetadataNodeSpecification*>(&other)
                                 : nullptr;
    form_ = same ? same->form_ : makeForm(other.getName());
    if (!same) {
        for (const std::u16string& key : other.getAttributeKeys())
            MetadataNodeSpecification::put(key, other.get(key));
    }
    takeAttributes(same ? *same : *this);
    const std::vector<std::shared_ptr<MetadataNode>>& children = other.getChildNodes();
    children_.reserve(children.size());
    for (const std::shared_ptr<MetadataNode>& child : children)
        children_.push_back(std::make_shared<MetadataNodeSpecification>(*child));
}

void MetadataNodeSpecification::takeAttributes(const MetadataNodeSpecification& source) {
    if (!source.rest_ && !source.values_)
        return;
    auto form = source.form_;
    if (source.rest_)
        form = detail::shareForm({form->name, source.getAttributeKeys()});
    auto values = detail::Values::make(form->keys.size(), nullptr);
    std::transform(form->keys.begin(), form->keys.end(), values->begin(),
                   [&](const std::u16string& key) { return source.get(key); });
    form_ = std::move(form);
    values_ = std::move(values);
    rest_.reset();
}

MetadataNodeSpecification::MetadataNodeSpecification(const MetadataNodeSpecification& other)
    : MetadataNodeSpecification(static_cast<const MetadataNode&>(other)) {}

MetadataNodeSpecification::~MetadataNodeSpecification() = default;

const std::u16string& MetadataNodeSpecification::get(std::u16string key) const {
    static const auto& absent = *new std::u16string;
    if (const auto index = findKey(*form_, key))
        return values_->begin()[*index];
    if (!rest_)
        return absent;
    const auto found = rest_->find(key);
    return found == rest_->end() ? absent : found->second;
}

void MetadataNodeSpecification::put(std::u16string key, std::u16string value) {
    const auto index = findKey(*form_, key);
    if (!index && !isValidKey(key))
        raise<PutMetadataKeyFailure>(key);
    if (!isValidAttribute(value))
        raise<PutMetadataValueFailure>(value);
    if (index) {
        values_->begin()[*index] = std::move(value);
        return;
    }
    if (!rest_)
        rest_ = std::make_unique<Attributes>();
    rest_->insert_or_assign(std::move(key), std::move(value));
}

std::vector<std::u16string> MetadataNodeSpecification::getAttributeKeys() const {
    if (!rest_)
        return form_->keys;
    std::vector<std::u16string> keys;
    keys.reserve(form_->keys.size() + rest_->size());
    auto next = form_->keys.begin();
    for (const auto& attribute : *rest_) {
        for (; next != form_->keys.end() && *next < attribute.first; ++next)
            keys.push_back(*next);
        keys.push_back(attribute.first);
    }
    keys.insert(keys.end(), next, form_->keys.end());
    return keys;
}

void detail::visitAttributes(const MetadataNode& visited, const AttributeVisitor& visit) {
    const MetadataNode& node = getShared(visited);
    if (typeid(node) != typeid(MetadataNodeSpecification)) {
        for (const std::u16string& key : node.getAttributeKeys())
            visit(key, node.get(key));
        return;
    }
    const auto& own = static_cast<const MetadataNodeSpecification&>(node);
    const auto& keys = own.form_->keys;
    std::size_t next = 0;
    const auto visitUntil = [&](const auto& isReached) {
        for (; next < keys.size() && !isReached(keys[next]); ++next)
            visit(keys[next], own.values_->begin()[next]);
    };
    if (own.rest_) {
        for (const auto& attribute : *own.rest_) {
            visitUntil([&](const std::u16string& key) { return attribute.first < key; });
            visit(attribute.first, attribute.second);
        }
    }
    visitUntil([](const std::u16string&) { return false; });
}

const std::u16string& MetadataNodeSpecification::getName() const {
    return form_->name;
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
