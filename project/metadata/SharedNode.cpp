#include "project/metadata/SharedNode.hpp"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <mutex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "project/metadata/MetadataNodeSpecification.hpp"

namespace project::metadata {

namespace {

class SharingNode final : public MetadataNode {
public:
    explicit SharingNode(std::shared_ptr<const MetadataNode> kept) : kept_(std::move(kept)) {}

    /// What is kept; null if this node has a content of its own.
    const std::shared_ptr<const MetadataNode>* getKept() const noexcept {
        return attributes_ || hasChildren_ ? nullptr : &kept_;
    }

    const std::u16string& get(std::u16string key) const override { return attributes().get(std::move(key)); }
    std::vector<std::u16string> getAttributeKeys() const override { return attributes().getAttributeKeys(); }
    const std::u16string& getName() const override { return kept_->getName(); }

    void put(std::u16string key, std::u16string value) override {
        if (!attributes_) {
            auto own = std::make_unique<MetadataNodeSpecification>(kept_->getName());
            for (const std::u16string& old : kept_->getAttributeKeys())
                own->put(old, kept_->get(old));
            attributes_ = std::move(own);
        }
        attributes_->put(std::move(key), std::move(value));
    }

    const std::vector<std::shared_ptr<MetadataNode>>& getChildNodes() const override { return children(); }

    MetadataNode& createChildNode(std::u16string name) override {
        children().push_back(std::make_shared<MetadataNodeSpecification>(std::move(name)));
        return *children().back();
    }
    MetadataNode& createChildNode() override { return createChildNode(getDefaultMetadataNodeName()); }

    void remove(const MetadataNode& node) override {
        // The removed ones die only after the list is whole again: their destruction may run into this node.
        auto& list = children();
        const auto kept =
            std::stable_partition(list.begin(), list.end(), [&](const auto& child) { return child.get() != &node; });
        const std::vector<std::shared_ptr<MetadataNode>> removed(std::make_move_iterator(kept),
                                                                 std::make_move_iterator(list.end()));
        list.erase(kept, list.end());
    }

    void copy(const MetadataNode& source) override {
        for (const std::u16string& key : source.getAttributeKeys())
            put(key, source.get(key));
        for (const std::shared_ptr<MetadataNode>& child : source.getChildNodes())
            createChildNode(child->getName()).copy(*child);
    }

private:
    const MetadataNode& attributes() const noexcept { return attributes_ ? *attributes_ : *kept_; }

    std::vector<std::shared_ptr<MetadataNode>>& children() const {
        if (hasChildren_)
            return children_;
        // Whoever gets them may change them.
        std::vector<std::shared_ptr<MetadataNode>> copies;
        copies.reserve(kept_->getChildNodes().size());
        for (const std::shared_ptr<MetadataNode>& child : kept_->getChildNodes())
            copies.push_back(std::make_shared<SharingNode>(child));
        // Several threads may read one node.
        static std::mutex filling;
        const std::lock_guard<std::mutex> lock(filling);
        if (!hasChildren_) {
            children_ = std::move(copies);
            hasChildren_ = true;
        }
        return children_;
    }

    std::shared_ptr<const MetadataNode> kept_;  // as long as this lives: there are references to its values
    std::unique_ptr<MetadataNode> attributes_;  // null while they are those that are kept
    mutable std::vector<std::shared_ptr<MetadataNode>> children_;
    mutable std::atomic<bool> hasChildren_ = false;  // whether `children_` has them
};

const SharingNode* toSharing(const MetadataNode& node) noexcept {
    return typeid(node) == typeid(SharingNode) ? static_cast<const SharingNode*>(&node) : nullptr;
}

}  // namespace

std::shared_ptr<const MetadataNode> keepNode(const MetadataNode& node) {
    const SharingNode* const sharing = toSharing(node);
    if (sharing && sharing->getKept())
        return *sharing->getKept();
    return std::make_shared<const MetadataNodeSpecification>(node);
}

std::unique_ptr<MetadataNode> copyKeptNode(std::shared_ptr<const MetadataNode> kept) {
    return std::make_unique<SharingNode>(std::move(kept));
}

const MetadataNode& getShared(const MetadataNode& node) noexcept {
    const SharingNode* const sharing = toSharing(node);
    return sharing && sharing->getKept() ? **sharing->getKept() : node;
}

}  // namespace project::metadata
