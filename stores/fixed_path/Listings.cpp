#include "stores/fixed_path/Listings.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>

namespace stores::fixed_path {

using project::metadata::PathElement;

namespace {

std::uint32_t hash(const PathElement& element) {
    constexpr std::size_t odd = 0x9E3779B97F4A7C15;
    const std::hash<std::u16string> hashText;
    return static_cast<std::uint32_t>((hashText(element.getType()) * odd + hashText(element.getLocation())) >> 32U);
}

}  // namespace

void Listings::add(const host::Path& folder, const Listing& listing) {
    std::vector<Entry> entries;
    entries.reserve(listing.children.size());
    for (const auto& [content, hasFolder] : listing.children)
        entries.push_back({content->version.inode, content->version.changed, hash(content->element), hasFolder});
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.hash < b.hash; });
    folders_.insert_or_assign(folder.text(), Entries{std::move(entries), listing.isAll});
}

const Listings::Entries* Listings::find(const host::Path& folder) const {
    if (!last_ || last_->first != folder.text()) {
        const auto found = folders_.find(folder.text());
        if (found == folders_.end())
            return nullptr;
        last_ = &*found;
    }
    return &last_->second;
}

std::optional<Child> Listings::find(const host::Path& folder, const PathElement& element, PathFileCache& cache) const {
    const Entries* const found = find(folder);
    if (!found)
        return std::nullopt;
    const std::vector<Entry>& entries = found->entries;
    const std::uint32_t wanted = hash(element);
    auto entry = std::lower_bound(entries.begin(), entries.end(), wanted,
                                  [](const Entry& each, std::uint32_t value) { return each.hash < value; });
    for (; entry != entries.end() && entry->hash == wanted; ++entry) {
        PathFilePtr content = cache.find(entry->inode, entry->changed);
        if (content && content->element == element)
            return Child{std::move(content), entry->hasFolder};
    }
    return std::nullopt;
}

std::optional<Listing> Listings::find(const host::Path& folder, PathFileCache& cache) const {
    const Entries* const found = find(folder);
    if (!found)
        return std::nullopt;
    Listing listing{{}, found->isAll};
    listing.children.reserve(found->entries.size());
    for (const Entry& entry : found->entries) {
        PathFilePtr content = cache.find(entry.inode, entry.changed);
        if (!content || hash(content->element) != entry.hash)
            return std::nullopt;
        listing.children.push_back({std::move(content), entry.hasFolder});
    }
    return listing;
}

}  // namespace stores::fixed_path
