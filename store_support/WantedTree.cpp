#include "store_support/WantedTree.hpp"

#include <functional>
#include <string_view>

namespace store_support {

using project::metadata::MetadataPath;
using project::metadata::PathElement;

WantedTree::WantedTree(const std::vector<MetadataPath>& paths) : elements_(1), children_(1) {
    for (const MetadataPath& path : paths) {
        Index parent = 0;
        for (const PathElement& element : path.getPath()) {
            const auto [place, isNew] = indices_.emplace(Step{parent, &element}, elements_.size());
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
    const auto place = indices_.find(Step{parent, &element});
    return place == indices_.end() ? std::nullopt : std::optional(place->second);
}

std::size_t WantedTree::StepHash::operator()(const Step& step) const noexcept {
    const std::hash<std::u16string_view> hash;
    constexpr std::size_t factor = 1099511628211U;  // of the FNV hash
    return ((step.parent * factor) ^ hash(step.element->getType())) * factor ^ hash(step.element->getLocation());
}

}  // namespace store_support
