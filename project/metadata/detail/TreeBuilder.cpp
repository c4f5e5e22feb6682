#include "project/metadata/detail/TreeBuilder.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/Text.hpp"
#include "host/XmlText.hpp"
#include "project/metadata/AttributeRules.hpp"

namespace project::metadata::detail {

namespace {

/// Whether the forms that this thread has kept are gone, while what is destroyed after them may still make nodes.
thread_local bool areFormsGone = false;

/// The forms of nodes that were made on this thread last.
struct RecentForms : std::vector<std::weak_ptr<const NodeForm>> {
    ~RecentForms() { areFormsGone = true; }
};

}  // namespace

std::shared_ptr<const NodeForm> shareForm(NodeForm form) {
    if (areFormsGone)
        return std::make_shared<const NodeForm>(std::move(form));
    thread_local RecentForms recent;
    constexpr std::size_t maxRecent = 32;
    for (const auto& candidate : recent) {
        auto other = candidate.lock();
        if (other && other->name == form.name && other->keys == form.keys)
            return other;
    }
    auto shared = std::make_shared<const NodeForm>(std::move(form));
    if (recent.size() == maxRecent)
        recent.erase(recent.begin());
    recent.emplace_back(shared);
    return shared;
}

void TreeBuilder::startElement(const xmlChar* name) {
    pool_ = &pools_[name];
    MetadataNodeSpecification& node = addNode();
    open_.push_back({&node, children_.size()});
    constexpr std::size_t usualCount = 8;
    names_.clear();
    names_.reserve(usualCount);
    names_.push_back(name);
    values_.clear();
    values_.reserve(usualCount);
    areValuesValid_ = true;
}

void TreeBuilder::addAttribute(const xmlChar* key, std::string_view value) {
    names_.push_back(key);
    const auto isPlain = [](char c) { return c >= 0x20 && c < 0x7F; };
    if (std::all_of(value.begin(), value.end(), isPlain)) {
        values_.emplace_back(value.begin(), value.end());
        return;
    }
    values_.push_back(host::fromUtf8(value));
    areValuesValid_ = areValuesValid_ && isValidAttribute(values_.back());
}

void TreeBuilder::endAttributes() {
    MetadataNodeSpecification& node = *open_.back().node;
    const ElementKind& kind = getKind();
    node.form_ = kind.form;
    if (!kind.isValid || !areValuesValid_) {
        // One of these fails.
        MetadataNodeSpecification refusing;
        for (std::size_t i = 0; i < values_.size(); ++i)
            refusing.put(host::XmlText::toUtf16(names_[i + 1]), values_[i]);
    }
    if (values_.empty())
        return;
    node.values_ = Values::make(kind.form->keys.size(), getBlock());
    for (std::size_t i = 0; i < values_.size(); ++i)
        node.values_->begin()[kind.places[i]] = std::move(values_[i]);
}

void TreeBuilder::endElement() {
    const auto [node, firstChild] = open_.back();
    open_.pop_back();
    const auto first = children_.begin() + static_cast<std::ptrdiff_t>(firstChild);
    node->children_.assign(std::make_move_iterator(first), std::make_move_iterator(children_.end()));
    children_.erase(first, children_.end());
}

std::unique_ptr<MetadataNode> TreeBuilder::takeRoot() {
    // Who keeps one tree of many is not to keep memory of the others.
    for (auto& [name, pool] : pools_)
        pool = {};
    return std::move(root_);
}

MetadataNodeSpecification& TreeBuilder::addNode() {
    if (!root_) {
        root_ = std::make_unique<MetadataNodeSpecification>();
        return *root_;
    }
    auto node = std::allocate_shared<MetadataNodeSpecification>(BlockAllocator<MetadataNodeSpecification>(getBlock()));
    MetadataNodeSpecification& added = *node;
    children_.push_back(std::move(node));
    return added;
}

/// Null for the first nodes of a name: small files are often kept in great numbers, and only in part.
MemoryBlock* TreeBuilder::getBlock() {
    constexpr std::size_t heapParts = 32;
    constexpr std::size_t firstSize = 4 * 1024;
    constexpr std::size_t maxSize = 32 * 1024;
    auto& [partCount, block] = *pool_;
    if (++partCount <= heapParts)
        return nullptr;
    if (!block || block->isFull())
        block.reset(MemoryBlock::make(block ? std::min(2 * block->getSize(), maxSize) : firstSize));
    return block.get();
}

/// The kind of the node begun last.
const ElementKind& TreeBuilder::getKind() {
    const auto [entry, isNew] = kinds_.try_emplace(names_);
    ElementKind& kind = entry->second;
    if (!isNew)
        return kind;

    NodeForm form{host::XmlText::toUtf16(names_.front()), {}};
    std::vector<std::u16string> keys;
    std::transform(names_.begin() + 1, names_.end(), std::back_inserter(keys), host::XmlText::toUtf16);
    kind.isValid = std::all_of(keys.begin(), keys.end(), isValidKey);
    if (kind.isValid) {
        form.keys = keys;
        std::sort(form.keys.begin(), form.keys.end());
        form.keys.erase(std::unique(form.keys.begin(), form.keys.end()), form.keys.end());
    }
    for (const std::u16string& key : keys) {
        const auto place = std::lower_bound(form.keys.begin(), form.keys.end(), key);
        kind.places.push_back(static_cast<std::size_t>(place - form.keys.begin()));
    }
    kind.form = shareForm(std::move(form));
    return kind;
}

}  // namespace project::metadata::detail
