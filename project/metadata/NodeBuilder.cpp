#include "project/metadata/NodeBuilder.hpp"

#include <set>
#include <string>

#include "project/metadata/detail/TreeBuilder.hpp"

namespace project::metadata {

namespace {

/// The name of a node or a key.
struct Name {
    std::string text;
    mutable const Name* next = nullptr;  ///< the one that came after it last
};

struct ByText {
    using is_transparent = void;
    bool operator()(const Name& a, const Name& b) const noexcept { return a.text < b.text; }
    bool operator()(const Name& a, std::string_view b) const noexcept { return a.text < b; }
    bool operator()(std::string_view a, const Name& b) const noexcept { return a < b.text; }
};

}  // namespace

class NodeBuilder::Trees {
    detail::ElementKinds kinds_;

public:
    detail::TreeBuilder builder{kinds_};
    bool hasAttributes = false;  ///< whether more of those of the node begun last may come

    /// The one copy of `text`.
    const xmlChar* keep(std::string_view text) {
        // Nodes of one kind have the same names in the same order.
        if (last_ && last_->next && last_->next->text == text) {
            last_ = last_->next;
        } else {
            auto name = names_.find(text);
            if (name == names_.end()) {
                name = names_.insert({std::string(text)}).first;
                size_ += text.size();
            }
            if (last_)
                last_->next = &*name;
            last_ = &*name;
        }
        return reinterpret_cast<const xmlChar*>(last_->text.c_str());
    }

    void endAttributes() {
        if (hasAttributes)
            builder.endAttributes();
        hasAttributes = false;
    }

    /// Whether so much is remembered that it is better forgotten.
    bool isFull() const noexcept { return names_.size() > 1000 || size_ > 100'000 || kinds_.size() > 100; }

private:
    std::set<Name, ByText> names_;
    std::size_t size_ = 0;  // of all names
    const Name* last_ = nullptr;
};

NodeBuilder::NodeBuilder() : trees_(std::make_unique<Trees>()) {}
NodeBuilder::~NodeBuilder() = default;

void NodeBuilder::begin(std::string_view name) {
    trees_->endAttributes();
    trees_->builder.startElement(trees_->keep(name));
    trees_->hasAttributes = true;
}

void NodeBuilder::put(std::string_view key, std::string_view value) {
    trees_->builder.addAttribute(trees_->keep(key), value);
}

void NodeBuilder::end() {
    trees_->endAttributes();
    trees_->builder.endElement();
}

std::unique_ptr<MetadataNode> NodeBuilder::take() {
    auto root = trees_->builder.takeRoot();
    if (trees_->isFull())
        clear();
    return root;
}

void NodeBuilder::clear() {
    trees_ = std::make_unique<Trees>();
}

}  // namespace project::metadata
