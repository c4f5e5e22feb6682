#include "stores/postgresql/ReadAhead.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace stores::postgresql {

namespace {

/// How much is kept, in bytes, and how many lists or rows come at once at most.
constexpr std::size_t largestSize = std::size_t{64} << 20;
constexpr std::size_t mostAhead = 1024;

/// How many paths are kept in mind that are likely to be asked for, about 100 bytes each.
constexpr std::size_t mostListed = std::size_t{1} << 20;

/// After an answer of more bytes than this, less is asked for at once.
constexpr std::size_t largestLot = std::size_t{4} << 20;

/// About what a row takes, with its places in tables and lists.
std::size_t estimate(const Row& row) {
    constexpr std::size_t overhead = 400;
    return overhead + (row.node ? row.node->size() : 0);
}

}  // namespace

const Row* ReadAhead::find(const PathId& id) const {
    const auto row = rows_.find(id);
    return row != rows_.end() && row->second.value ? &*row->second.value : nullptr;
}

std::optional<std::vector<const Row*>> ReadAhead::findChildren(const PathId& parent) {
    const auto list = lists_.find(parent);
    if (list == lists_.end())
        return std::nullopt;
    std::vector<const Row*> children;
    for (const PathId& id : list->second.value) {
        const Row* const row = find(id);
        if (!row)
            return std::nullopt;  // it has been forgotten
        children.push_back(row);
    }
    ++used_;
    takeOut(parent);
    return children;
}

std::list<PathId>::const_iterator ReadAhead::findNext(const PathId& id) const {
    const auto place = places_.find(id);
    return place == places_.end() ? listed_.end() : std::next(place->second);
}

bool ReadAhead::wasLarge() const {
    return !lots_.empty() && lots_.back().bytes > largestLot;
}

Question ReadAhead::getRowQuestion(const PathId& id) {
    if (id != nextRow_)
        rowsAhead_ = 1;
    else
        rowsAhead_ = wasLarge() ? std::max(rowsAhead_ / 2, std::size_t{1}) : std::min(2 * rowsAhead_, mostAhead);
    Question question;
    question.rows = {id};
    auto next = findNext(id);
    for (; next != listed_.end() && question.rows.size() < rowsAhead_ && !isKnown(*next); ++next)
        question.rows.push_back(*next);
    nextRow_ = next == listed_.end() ? std::nullopt : std::optional<PathId>(*next);
    return question;
}

Question ReadAhead::getQuestion(const PathId& parent) {
    const bool isWorthIt = used_ >= ahead_ / 2 && !wasLarge();
    ahead_ = isWorthIt ? std::min(2 * ahead_, mostAhead) : std::max(ahead_ / 2, std::size_t{1});
    used_ = 0;
    Question question;
    question.childrenOf = {parent};
    for (auto next = findNext(parent); next != listed_.end() && question.childrenOf.size() < ahead_; ++next) {
        if (lists_.count(*next) == 0)
            question.childrenOf.push_back(*next);
    }
    return question;
}

void ReadAhead::add(const Question& question, Answer answer) {
    if (answer.batch != batch_) {
        forgetRows();
        batch_ = answer.batch;
    }
    Lot& lot = lots_.emplace_back();
    const std::size_t number = oldestLot_ + lots_.size() - 1;
    const auto keep = [&](Row row) {
        lot.bytes += estimate(row);
        lot.rows.push_back(row.id);
        const PathId id = row.id;
        rows_.insert_or_assign(id, Kept<std::optional<Row>>{std::move(row), number});
    };
    for (const PathId& id : question.rows) {
        const auto row = answer.rows.find(id);
        if (row != answer.rows.end()) {
            keep(std::move(row->second));
        } else {
            rows_.insert_or_assign(id, Kept<std::optional<Row>>{std::nullopt, number});
            lot.rows.push_back(id);
            lot.bytes += estimate({});
        }
    }
    for (const PathId& parent : question.childrenOf) {
        std::vector<PathId> list;
        for (Row& row : answer.childrenOf[parent]) {
            if (!row.isSound())
                continue;  // damage, which whoever has asked tells
            list.push_back(row.id);
            if (listed_.size() < mostListed && places_.emplace(row.id, listed_.end()).second)
                places_[row.id] = listed_.insert(listed_.end(), row.id);
            keep(std::move(row));
        }
        lot.lists.push_back(parent);
        lists_.insert_or_assign(parent, Kept<std::vector<PathId>>{std::move(list), number});
    }
    bytes_ += lot.bytes;
    while (bytes_ > largestSize && lots_.size() > 1)
        forgetOldest();
}

void ReadAhead::forgetRows() {
    rows_.clear();
    lists_.clear();
    lots_.clear();
    bytes_ = 0;
}

void ReadAhead::takeOut(const PathId& id) {
    const auto place = places_.find(id);
    if (place == places_.end())
        return;
    listed_.erase(place->second);
    places_.erase(place);
}

void ReadAhead::forgetOldest() {
    const auto forget = [&](auto& kept, const std::vector<PathId>& ids) {
        for (const PathId& id : ids) {
            const auto found = kept.find(id);
            if (found != kept.end() && found->second.lot == oldestLot_)
                kept.erase(found);
        }
    };
    forget(rows_, lots_.front().rows);
    forget(lists_, lots_.front().lists);
    bytes_ -= lots_.front().bytes;
    lots_.pop_front();
    ++oldestLot_;
}

void ReadAhead::clear() {
    *this = ReadAhead();
}

}  // namespace stores::postgresql
