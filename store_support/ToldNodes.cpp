#include "store_support/ToldNodes.hpp"

#include "store_support/ChildNumbers.hpp"

namespace store_support {

namespace {

constexpr std::uint64_t rootKey = 0;

std::uint64_t getChildKey(std::uint64_t parent, const PathElement& element) noexcept {
    return ChildStepHash()({parent, &element});
}

}  // namespace

MetadataPath getAncestor(const MetadataPath& path, std::size_t depth) {
    const auto& elements = path.getPath();
    return MetadataPath({elements.begin(), elements.begin() + static_cast<std::ptrdiff_t>(depth)});
}

ToldNodes::Key ToldNodes::getKey(const MetadataPath& path) {
    Key key = rootKey;
    for (const PathElement& element : path.getPath())
        key = getChildKey(key, element);
    return key;
}

ToldNodes::Known& ToldNodes::use(Key key) {
    if (known_.size() >= limit_ && known_.count(key) == 0) {
        known_.clear();
        forgotten_ = ++now_;
    }
    return known_[key];
}

void ToldNodes::tell(const MetadataPath& path, bool hasNode) {
    const Key key = getKey(path);
    if (!hasNode && forgotten_ == 0) {
        // What was never told of is not expected either.
        const auto known = known_.find(key);
        if (known != known_.end())
            known->second.hasNode = false;
        return;
    }
    Known& known = use(key);
    known.told = now_;
    known.hasNode = hasNode;
}

bool ToldNodes::isExpected(const MetadataPath& path, std::size_t depth) const noexcept {
    if (isEmpty())
        return false;
    std::uint64_t removed = 0;
    Key key = rootKey;
    auto known = known_.find(key);
    for (std::size_t i = 0;; ++i) {
        if (known != known_.end() && known->second.removed > removed)
            removed = known->second.removed;
        if (i == depth)
            break;
        key = getChildKey(key, path.getPath()[i]);
        known = known_.find(key);
    }
    if (known != known_.end() && known->second.told != 0)
        return known->second.hasNode && known->second.told >= removed;
    return forgotten_ != 0 && forgotten_ >= removed;
}

ToldNodes::Change ToldNodes::setting(const MetadataPath& path, bool hasNode) {
    Change change(*this);
    change.set_.emplace_back(getKey(path), hasNode);
    use(change.set_.back().first);
    return change;
}

ToldNodes::Change ToldNodes::setting(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    Change change(*this);
    change.set_.reserve(nodes.size());
    for (const auto& [path, node] : nodes) {
        change.set_.emplace_back(getKey(path), node != nullptr);
        use(change.set_.back().first);
    }
    return change;
}

ToldNodes::Change ToldNodes::removing(const std::vector<MetadataPath>& paths) {
    Change change(*this);
    if (isEmpty())
        return change;
    change.removed_.reserve(paths.size());
    for (const MetadataPath& path : paths) {
        change.removed_.push_back(getKey(path));
        use(change.removed_.back());
    }
    return change;
}

ToldNodes::Change ToldNodes::renaming(const MetadataPath& path, const MetadataPath& target) {
    Change change = removing({path});
    if (isExpected(path)) {
        change.set_.emplace_back(getKey(target), true);
        use(change.set_.back().first);
    }
    return change;
}

ToldNodes::Change ToldNodes::keeping(const std::vector<MetadataPath>& paths) {
    Change change = removing({MetadataPath()});
    if (change.removed_.empty())
        return change;
    std::vector<Key> walk;  // to the last path, whose ancestors mostly are those of the next one too
    for (const MetadataPath& path : paths) {
        Key key = rootKey;
        for (std::size_t depth = 0; depth <= path.getPath().size(); ++depth) {
            if (depth > 0)
                key = getChildKey(key, path.getPath()[depth - 1]);
            if (depth < walk.size() && walk[depth] == key)
                continue;
            walk.resize(depth);
            walk.push_back(key);
            if (isExpected(path, depth))
                change.set_.emplace_back(key, true);
        }
    }
    for (const auto& [key, hasNode] : change.set_)
        use(key);
    return change;
}

void ToldNodes::Change::done() noexcept {
    ToldNodes& told = *told_;
    ++told.now_;
    for (const Key key : removed_) {
        const auto known = told.known_.find(key);
        if (known != told.known_.end())
            known->second.removed = told.now_;
    }
    ++told.now_;
    for (const auto& [key, hasNode] : set_) {
        const auto known = told.known_.find(key);
        if (known == told.known_.end())
            continue;
        known->second.told = told.now_;
        known->second.hasNode = hasNode;
    }
}

}  // namespace store_support
