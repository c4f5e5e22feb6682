/// What a store knows of the changes that others have made, so that it overwrites none unseen.
///
/// One thread at a time may use an object.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "store_support/ToldNodes.hpp"

namespace store_support {

/// Batches are numbered through, whoever made them, and each row says which one changed it last. Everything up to a
/// certain batch is known; of later ones, those that are the store's own, and single rows that it has read since.
/// As long as nobody else writes, nothing is kept but one number.
/// @tparam RowId what tells one row from another
template <class RowId, class Hash = std::hash<RowId>>
class SeenChanges {
public:
    /// @param batch the last one of which everything is known; 0 if nothing is
    explicit SeenChanges(std::int64_t batch = 0) : known_(batch), last_(batch) {}

    /// Everything up to `batch` is known now, and nothing else: of content that may have another past. What the user
    /// was told stays.
    void restart(std::int64_t batch = 0) noexcept {
        isReplaced_ = isReplaced_ || !told_.isEmpty();
        known_ = last_ = batch;
        own_.clear();
        rows_.clear();
    }

    /// The number of the last batch is `batch`. If it was a greater one before, what is there now has another past, as
    /// from a backup, and nothing of it is known.
    void noteLast(std::int64_t batch) noexcept {
        if (batch < last_)
            restart();
        last_ = batch;
    }

    /// Whether the row `id` as the batch `changed` left it is known.
    bool isKnown(const RowId& id, std::int64_t changed) const {
        if (changed <= known_ || isOwn(changed))
            return true;
        const auto row = rows_.find(id);
        return row != rows_.end() && row->second == changed;
    }

    /// The store has read the row `id` as the batch `changed` left it.
    void addRow(const RowId& id, std::int64_t changed) {
        if (!isKnown(id, changed))
            rows_.insert_or_assign(id, changed);
    }

    /// Which nodes the user takes to be there.
    ToldNodes& told() noexcept { return told_; }

    /// Whether he takes a node to be at the ancestor of `path` that has `depth` steps. To be asked where there is none:
    /// then somebody else has removed it, or may have.
    bool isGone(const MetadataPath& path, std::size_t depth) const noexcept {
        return (last_ != known_ || isReplaced_) && told_.isExpected(path, depth);
    }

    /// What is wrong with putting that node back.
    const char16_t* explainGone(const MetadataPath& path, std::size_t depth) const {
        return told_.explainAbsence(path, depth);
    }

    /// Makes sure that the next `addOwn` needs no memory.
    void reserveOwn() {
        if (own_.size() == own_.capacity())
            own_.reserve(2 * own_.size() + 1);
    }

    /// The store has written the batch `batch`.
    void addOwn(std::int64_t batch) {
        last_ = batch;
        if (batch == known_ + 1)
            known_ = batch;
        else if (!own_.empty() && batch == own_.back().second + 1)
            own_.back().second = batch;
        else
            own_.emplace_back(batch, batch);
    }

private:
    bool isOwn(std::int64_t batch) const {
        const auto after = std::upper_bound(own_.begin(), own_.end(), batch,
                                            [](std::int64_t value, const auto& range) { return value < range.first; });
        return after != own_.begin() && batch <= std::prev(after)->second;
    }

    /// That takes some 100 MB, however large a project is.
    static constexpr std::size_t rememberedPaths = 2'000'000;

    std::int64_t known_;
    std::int64_t last_;                                       // that there was, as far as the store has seen
    std::vector<std::pair<std::int64_t, std::int64_t>> own_;  // first and last of a run of batches, ascending
    std::unordered_map<RowId, std::int64_t, Hash> rows_;      // the batch, by the row's id
    ToldNodes told_{rememberedPaths};
    bool isReplaced_ = false;  // whether the content was ever another one, with nodes of which the user was told
};

}  // namespace store_support
