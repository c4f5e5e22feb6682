#include "store_support/WantedTree.hpp"

namespace store_support {

WantedTree::WantedTree(const std::vector<MetadataPath>& paths) : elements_(1), children_(1) {
    std::vector<Index> walk(1);  // to the last path, which mostly begins like the next one
    for (const MetadataPath& path : paths) {
        const auto& steps = path.getPath();
        hasRoot_ = hasRoot_ || steps.empty();
        std::size_t depth = 0;
        while (depth < steps.size() && depth + 1 < walk.size() && *elements_[walk[depth + 1]] == steps[depth])
            ++depth;
        walk.resize(depth + 1);
        for (; depth < steps.size(); ++depth) {
            const Index parent = walk.back();
            const auto [place, isNew] = indices_.try_emplace(ChildStep{parent, &steps[depth]}, elements_.size());
            if (isNew) {
                children_[parent].push_back(place->second);
                children_.emplace_back();
                elements_.push_back(&steps[depth]);
            }
            walk.push_back(place->second);
        }
    }
}

std::optional<WantedTree::Index> WantedTree::find(Index parent, const PathElement& element) const {
    const auto place = indices_.find(ChildStep{parent, &element});
    return place == indices_.end() ? std::nullopt : std::optional(place->second);
}

bool WantedTree::has(const MetadataPath& path) const {
    std::optional<Index> index = 0;
    for (const PathElement& element : path.getPath()) {
        index = find(*index, element);
        if (!index)
            return false;
    }
    return *index != 0 || hasRoot_;
}

}  // namespace store_support
