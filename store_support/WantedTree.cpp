#include "store_support/WantedTree.hpp"

namespace store_support {

WantedTree::WantedTree(const std::vector<MetadataPath>& paths) : elements_(1), children_(1) {
    for (const MetadataPath& path : paths) {
        Index parent = 0;
        for (const PathElement& element : path.getPath()) {
            const auto [place, isNew] = indices_.emplace(ChildStep{parent, &element}, elements_.size());
            if (isNew) {
                children_[parent].push_back(place->second);
                children_.emplace_back();
                elements_.push_back(&element);
            }
            parent = place->second;
        }
    }
}

std::optional<WantedTree::Index> WantedTree::find(Index parent, const PathElement& element) const {
    const auto place = indices_.find(ChildStep{parent, &element});
    return place == indices_.end() ? std::nullopt : std::optional(place->second);
}

}  // namespace store_support
