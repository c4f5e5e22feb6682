#include "stores/fixed_path/PathFileCache.hpp"

#include <functional>
#include <utility>

namespace stores::fixed_path {

using host::Path;
using store_support::FileVersion;

namespace {

/// About as much memory as `content` takes.
std::size_t estimateBytes(const PathFile& content) {
    constexpr std::size_t place = 400;
    constexpr std::size_t nodeToFile = 3;
    return place + (content.node ? nodeToFile * static_cast<std::size_t>(content.version.size) : 0);
}

}  // namespace

PathFilePtr PathFileCache::find(const Path& file, const FileVersion& version) {
    const Entry* const entry = touch(version.inode);
    return entry && entry->content->version == version && entry->fileHash == std::hash<std::u16string>()(file.text())
               ? entry->content
               : nullptr;
}

PathFilePtr PathFileCache::find(std::uint64_t inode, std::int64_t changed) {
    const Entry* const entry = touch(inode);
    return entry && entry->content->version.changed == changed ? entry->content : nullptr;
}

const PathFileCache::Entry* PathFileCache::touch(std::uint64_t inode) {
    const auto young = young_.find(inode);
    if (young != young_.end())
        return &young->second;
    if (const auto ahead = ahead_.find(inode); ahead != ahead_.end()) {
        aheadBytes_ -= estimateBytes(*ahead->second.content);
        return rejuvenate(ahead_, ahead);
    }
    const auto old = old_.find(inode);
    return old == old_.end() ? nullptr : rejuvenate(old_, old);
}

const PathFileCache::Entry* PathFileCache::rejuvenate(Entries& entries, Entries::iterator entry) {
    auto taken = entries.extract(entry);
    makeRoom(*taken.mapped().content);
    return &young_.insert(std::move(taken)).position->second;
}

PathFilePtr PathFileCache::findAnyVersion(const Path& file, std::uint64_t inode) const {
    for (const Entries* entries : {&young_, &old_, &ahead_}) {
        const auto entry = entries->find(inode);
        if (entry != entries->end() && entry->second.fileHash == std::hash<std::u16string>()(file.text()))
            return entry->second.content;
    }
    return nullptr;
}

void PathFileCache::insert(const Path& file, PathFilePtr content) {
    const std::uint64_t inode = content->version.inode;
    erase(inode);
    makeRoom(*content);
    young_.emplace(inode, Entry{std::move(content), std::hash<std::u16string>()(file.text())});
}

void PathFileCache::insertAhead(const Path& file, PathFilePtr content) {
    constexpr std::size_t maximumBytes = std::size_t{1500} << 20U;
    const std::size_t bytes = estimateBytes(*content);
    if (aheadBytes_ + bytes > maximumBytes)
        return insert(file, std::move(content));
    const std::uint64_t inode = content->version.inode;
    erase(inode);
    ahead_.emplace(inode, Entry{std::move(content), std::hash<std::u16string>()(file.text())});
    aheadBytes_ += bytes;
}

void PathFileCache::erase(std::uint64_t inode) {
    if (const auto young = young_.find(inode); young != young_.end()) {
        youngBytes_ -= estimateBytes(*young->second.content);
        young_.erase(young);
    } else if (const auto ahead = ahead_.find(inode); ahead != ahead_.end()) {
        aheadBytes_ -= estimateBytes(*ahead->second.content);
        ahead_.erase(ahead);
    } else {
        old_.erase(inode);
    }
}

void PathFileCache::endReading() noexcept {
    // What there is no memory for can be read again.
    try {
        while (!ahead_.empty())
            rejuvenate(ahead_, ahead_.begin());
    } catch (...) {
        ahead_.clear();
    }
    aheadBytes_ = 0;
}

void PathFileCache::makeRoom(const PathFile& content) {
    constexpr std::size_t maximumBytes = std::size_t{200} << 20U;
    if (youngBytes_ > maximumBytes) {
        old_ = std::exchange(young_, {});
        youngBytes_ = 0;
    }
    youngBytes_ += estimateBytes(content);
}

}  // namespace stores::fixed_path
