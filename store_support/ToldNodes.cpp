#include "store_support/ToldNodes.hpp"

#include <algorithm>

#include "store_support/ChildNumbers.hpp"

namespace store_support {

namespace {

constexpr std::uint64_t noKey = 0;
constexpr std::uint64_t rootKey = 1;

std::uint64_t getChildKey(std::uint64_t parent, const PathElement& element) noexcept {
    const std::uint64_t key = ChildStepHash()({parent, &element});
    return key == noKey ? rootKey : key;
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

std::size_t ToldNodes::findPlace(Key key) const noexcept {
    std::size_t place = key & (known_.size() - 1);
    while (known_[place].key != noKey && known_[place].key != key)
        place = (place + 1) & (known_.size() - 1);
    return place;
}

const ToldNodes::Known* ToldNodes::find(Key key) const noexcept {
    const Known* const known = size_ == 0 ? nullptr : &known_[findPlace(key)];
    return known && known->key != noKey ? known : nullptr;
}

ToldNodes::Known& ToldNodes::use(Key key) {
    if (Known* const known = find(key))
        return *known;
    if (size_ >= limit_) {
        known_ = {};
        size_ = 0;
        forgotten_ = ++now_;
    }
    if (4 * (size_ + 1) > 3 * known_.size()) {
        std::vector<Known> smaller(std::max<std::size_t>(16, 2 * known_.size()));
        known_.swap(smaller);
        for (const Known& known : smaller) {
            if (known.key != noKey)
                known_[findPlace(known.key)] = known;
        }
    }
    ++size_;
    Known& known = known_[findPlace(key)];
    known = {key, 0, 0};
    return known;
}

void ToldNodes::tell(const MetadataPath& path, bool hasNode) {
    const Key key = getKey(path);
    if (!hasNode && forgotten_ == 0) {
        // What was never told of is not expected either.
        if (Known* const known = find(key))
            known->tell(known->told / 2, false);
        return;
    }
    use(key).tell(now_, hasNode);
    hasTold_ = hasTold_ || hasNode;
}

bool ToldNodes::isExpected(const MetadataPath& path, std::size_t depth) const noexcept {
    if (isEmpty())
        return false;
    std::uint64_t removed = 0;
    Key key = rootKey;
    const Known* known = find(key);
    for (std::size_t i = 0;; ++i) {
        if (known && known->removed > removed)
            removed = known->removed;
        if (i == depth)
            break;
        key = getChildKey(key, path.getPath()[i]);
        known = find(key);
    }
    if (known && known->told != 0)
        return known->told % 2 != 0 && known->told / 2 >= removed;
    return forgotten_ != 0 && forgotten_ >= removed;
}

ToldNodes::Change ToldNodes::setting(const MetadataPath& path, bool hasNode) {
    Change change(*this);
    change.set_.emplace_back(getKey(path), hasNode);
    use(change.set_.back().first);
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

const char16_t* ToldNodes::explainAbsence(const MetadataPath& path, std::size_t depth) const {
    const Known* const known = find(getKey(getAncestor(path, depth)));
    return known && known->told != 0 ? removedUnseen
                                     : u"may have been removed by somebody else; after so many paths nobody knows "
                                       u"whether it was read before; read it again first";
}

ToldNodes::Change ToldNodes::renaming(const MetadataPath& path, const MetadataPath& target) {
    if (path == target)
        return Change(*this);
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
    // To the last path, whose ancestors mostly are those of the next one too. The root path has to be listed itself.
    std::vector<Key> walk{rootKey};
    for (const MetadataPath& path : paths) {
        Key key = rootKey;
        if (path.getPath().empty() && isExpected(path))
            change.set_.emplace_back(key, true);
        for (std::size_t depth = 1; depth <= path.getPath().size(); ++depth) {
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
        if (Known* const known = told.find(key))
            known->removed = told.now_;
    }
    ++told.now_;
    for (const auto& [key, hasNode] : set_) {
        if (Known* const known = told.find(key))
            known->tell(told.now_, hasNode);
        told.hasTold_ = told.hasTold_ || hasNode;
    }
}

}  // namespace store_support
