#include "operations/SiblingOrder.hpp"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <optional>
#include <set>

#include "store_support/LongestAscent.hpp"

namespace operations {

namespace {

/// The place of each number in a list, or `none`.
Numbers findPlaces(const Numbers& list, std::size_t count) {
    Numbers places(count, none);
    for (std::size_t i = 0; i < list.size(); ++i)
        places[list[i]] = i;
    return places;
}

std::size_t countNumbers(const Numbers& list) {
    return list.empty() ? 0 : *std::max_element(list.begin(), list.end()) + 1;
}

template <class Condition>
Numbers keepIf(const Numbers& numbers, const Condition& condition) {
    Numbers kept;
    std::copy_if(numbers.begin(), numbers.end(), std::back_inserter(kept), condition);
    return kept;
}

/// Counts of places, as a binary indexed tree.
class Counts {
public:
    explicit Counts(std::size_t size) : sums_(size + 1) {}

    void add(std::size_t place, std::ptrdiff_t count) {
        for (++place; place < sums_.size(); place += place & (~place + 1))
            sums_[place] += count;
    }

    /// How many are before `place`.
    std::size_t before(std::size_t place) const {
        std::ptrdiff_t sum = 0;
        for (; place > 0; place -= place & (~place + 1))
            sum += sums_[place];
        return static_cast<std::size_t>(sum);
    }

private:
    std::vector<std::ptrdiff_t> sums_;
};

/// Siblings that three lists have, by their place in the base: their places on both sides.
class Scores {
public:
    Scores(const Numbers& ours, const Numbers& theirs)
        : ours_(ours), theirs_(theirs), threefold_(ours.size()), counts_(ours.size()) {}

    /// For each sibling, how many have to come before it.
    Numbers run() {
        Numbers byBase(ours_.size());
        std::iota(byBase.begin(), byBase.end(), std::size_t{0});
        const Numbers withOurs = countBefore(byBase, ours_);
        const Numbers withTheirs = countBefore(byBase, theirs_);
        const Numbers oursWithTheirs = countBefore(sortBy(byBase, ours_), theirs_);
        countThreefold(byBase);
        // Before it come those that are so everywhere, and those that are behind it in the base but not on both sides.
        Numbers scores(ours_.size());
        for (std::size_t i = 0; i < scores.size(); ++i)
            scores[i] = 2 * threefold_[i] + ours_[i] + theirs_[i] - withOurs[i] - withTheirs[i] - oursWithTheirs[i];
        return scores;
    }

private:
    static Numbers sortBy(Numbers siblings, const Numbers& places) {
        std::sort(siblings.begin(), siblings.end(),
                  [&](std::size_t a, std::size_t b) { return places[a] < places[b]; });
        return siblings;
    }

    /// For each sibling, how many are before it both in `sequence` and by `places`.
    Numbers countBefore(const Numbers& sequence, const Numbers& places) {
        Numbers result(sequence.size());
        Counts counts(sequence.size());
        for (const std::size_t sibling : sequence) {
            result[sibling] = counts.before(places[sibling]);
            counts.add(places[sibling], 1);
        }
        return result;
    }

    /// How many are before each sibling in all three lists: those in the first half of the base for those in the
    /// second half, and within each half. `siblings` is in the order of the base, and then in that of ours.
    void countThreefold(Numbers& siblings) {
        if (siblings.size() < 2)
            return;
        const auto middle = siblings.begin() + static_cast<std::ptrdiff_t>(siblings.size() / 2);
        Numbers first(siblings.begin(), middle);
        Numbers second(middle, siblings.end());
        countThreefold(first);
        countThreefold(second);
        auto next = first.begin();
        for (const std::size_t sibling : second) {
            for (; next != first.end() && ours_[*next] < ours_[sibling]; ++next)
                counts_.add(theirs_[*next], 1);
            threefold_[sibling] += counts_.before(theirs_[sibling]);
        }
        for (auto counted = first.begin(); counted != next; ++counted)
            counts_.add(theirs_[*counted], -1);
        std::merge(first.begin(), first.end(), second.begin(), second.end(), siblings.begin(),
                   [&](std::size_t a, std::size_t b) { return ours_[a] < ours_[b]; });
    }

    const Numbers& ours_;
    const Numbers& theirs_;
    Numbers threefold_;
    Counts counts_;
};

/// The order of those that both sides have.
///
/// Who comes before whom is settled for every two of them. So there is an order that agrees with all of that exactly
/// if no two have equally many before them, and these counts are the order; otherwise, each stretch of them at whose
/// end as many have been passed as there are pairs within it and before is one in which it runs in a circle (Landau's
/// theorem on the scores of tournaments).
MergedOrder orderCommon(const Numbers& base, const Numbers& ours, const Numbers& theirs, std::size_t count) {
    if (ours == theirs)
        return {ours, true};
    const Numbers inOurs = findPlaces(ours, count);
    const Numbers inBase = findPlaces(base, count);
    const auto isInBase = [&](std::size_t number) { return inBase[number] != none; };
    const auto isInOurs = [&](std::size_t number) { return inOurs[number] != none; };
    const Numbers baseHere = keepIf(base, isInOurs);
    const Numbers oursKnown = keepIf(ours, isInBase);
    const Numbers theirsKnown = keepIf(theirs, isInBase);
    const Numbers ourPlaces = findPlaces(oursKnown, count);
    const Numbers theirPlaces = findPlaces(theirsKnown, count);
    Numbers oursByBase, theirsByBase;
    for (const std::size_t number : baseHere) {
        oursByBase.push_back(ourPlaces[number]);
        theirsByBase.push_back(theirPlaces[number]);
    }
    const Numbers known = Scores(oursByBase, theirsByBase).run();
    const Numbers inBaseHere = findPlaces(baseHere, count);
    Numbers scores(count);
    std::size_t newBefore = 0, knownBefore = 0;
    for (const std::size_t number : ours) {
        // What the base does not have stands to all others as in ours.
        const bool isKnown = isInBase(number);
        scores[number] = isKnown ? known[inBaseHere[number]] + newBefore : knownBefore + newBefore;
        ++(isKnown ? knownBefore : newBefore);
    }

    MergedOrder result{ours, true};
    std::stable_sort(result.order.begin(), result.order.end(),
                     [&](std::size_t a, std::size_t b) { return scores[a] < scores[b]; });
    std::size_t begin = 0, sum = 0;
    for (std::size_t i = 0; i < result.order.size(); ++i) {
        sum += scores[result.order[i]];
        if (sum != i * (i + 1) / 2)
            continue;
        if (i > begin) {
            result.isConsistent = false;
            std::sort(result.order.begin() + static_cast<std::ptrdiff_t>(begin),
                      result.order.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                      [&](std::size_t a, std::size_t b) { return inOurs[a] < inOurs[b]; });
        }
        begin = i + 1;
    }
    return result;
}

/// Adds to `followers`, by how many of `common` are before them, those that only `side` has.
void placeOthers(const Numbers& side, const Numbers& common, std::size_t count, std::vector<Numbers>& followers) {
    const Numbers places = findPlaces(common, count);
    Numbers nextPlaces(side.size() + 1, common.size());  // the first one of what follows
    for (std::size_t i = side.size(); i-- > 0;)
        nextPlaces[i] = std::min(nextPlaces[i + 1], places[side[i]]);
    std::set<std::size_t> before{0};  // how many are before what comes behind those that have been passed
    std::size_t neighbour = 0;
    for (std::size_t i = 0; i < side.size(); ++i) {
        const std::size_t place = places[side[i]];
        if (place == none) {
            const std::size_t last = *std::prev(before.upper_bound(nextPlaces[i]));
            followers[std::max(last, neighbour)].push_back(side[i]);
        } else {
            neighbour = place + 1;
            before.insert(neighbour);
        }
    }
}

}  // namespace

std::vector<bool> findMoved(const Numbers& places) {
    std::vector<std::optional<std::size_t>> values;
    std::vector<bool> isMoved;
    for (const std::size_t place : places) {
        values.push_back(place == none ? std::nullopt : std::optional(place));
        isMoved.push_back(place != none);
    }
    for (const std::size_t i : store_support::findLongestAscent(values))
        isMoved[i] = false;
    return isMoved;
}

std::vector<Aligned> align(std::size_t beforeCount, const Numbers& partners) {
    std::vector<bool> isRemoved(beforeCount, true);
    for (const std::size_t partner : partners) {
        if (partner != none)
            isRemoved[partner] = false;
    }
    const std::vector<bool> isMoved = findMoved(partners);
    std::vector<Aligned> result;
    std::size_t next = 0;  // of those before
    const auto removeUpTo = [&](std::size_t end) {
        for (; next < end; ++next) {
            if (isRemoved[next])
                result.push_back({next, none, false});
        }
    };
    for (std::size_t i = 0; i < partners.size(); ++i) {
        if (partners[i] == none) {
            while (next < beforeCount && isRemoved[next])
                removeUpTo(next + 1);
        } else if (!isMoved[i]) {
            removeUpTo(partners[i] + 1);
        }
        result.push_back({partners[i], i, isMoved[i]});
    }
    removeUpTo(beforeCount);
    return result;
}

MergedOrder mergeOrder(const Numbers& base, const Numbers& ours, const Numbers& theirs) {
    const std::size_t count = std::max({countNumbers(base), countNumbers(ours), countNumbers(theirs)});
    const Numbers inOurs = findPlaces(ours, count);
    const Numbers inTheirs = findPlaces(theirs, count);
    const auto isCommon = [&](std::size_t number) { return inOurs[number] != none && inTheirs[number] != none; };
    MergedOrder common = orderCommon(base, keepIf(ours, isCommon), keepIf(theirs, isCommon), count);
    std::vector<Numbers> followers(common.order.size() + 1);
    placeOthers(ours, common.order, count, followers);
    placeOthers(theirs, common.order, count, followers);
    MergedOrder result{followers.front(), common.isConsistent};
    for (std::size_t i = 0; i < common.order.size(); ++i) {
        result.order.push_back(common.order[i]);
        result.order.insert(result.order.end(), followers[i + 1].begin(), followers[i + 1].end());
    }
    return result;
}

}  // namespace operations
