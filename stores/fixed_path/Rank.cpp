#include "stores/fixed_path/Rank.hpp"

#include <algorithm>
#include <string_view>

#include "store_support/LongestAscent.hpp"

namespace stores::fixed_path {

namespace {

constexpr std::u16string_view digits = u"0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// Longer ones are not given to anybody; where that would be, neighbours move too until there is room for a while. A
/// million siblings between two others need 6 characters.
constexpr std::size_t longestRank = 16;
constexpr std::size_t roomyRank = 8;

/// The whole part before the first one: never a rank by itself, so there is room for fractions before all others.
const Rank beginning = u"a0";

std::size_t digitValue(char16_t digit) {
    return digits.find(digit);
}

std::size_t wholeLength(const Rank& rank) {
    return 2 + static_cast<std::size_t>(rank[0] - u'a');
}

Rank wholePart(const Rank& rank) {
    return rank.empty() ? beginning : rank.substr(0, wholeLength(rank));
}

std::u16string fraction(const Rank& rank) {
    return rank.empty() ? rank : rank.substr(wholeLength(rank));
}

/// The whole part after `whole`.
Rank increment(Rank whole) {
    for (std::size_t i = whole.size() - 1; i > 0; --i) {
        if (whole[i] != digits.back()) {
            whole[i] = digits[digitValue(whole[i]) + 1];
            return whole;
        }
        whole[i] = digits.front();
    }
    ++whole[0];
    whole += digits.front();
    return whole;
}

/// A fraction between `a` and `b`, as short as possible; an empty `a` is zero, an empty `b` one.
std::u16string middle(const std::u16string& a, const std::u16string& b) {
    std::u16string result;
    for (std::size_t i = 0;; ++i) {
        const std::size_t low = i < a.size() ? digitValue(a[i]) : 0;
        const std::size_t high = i < b.size() ? digitValue(b[i]) : digits.size();
        if (high - low > 1)
            return result + digits[(low + high) / 2];
        result += digits[low];
        if (high == low)
            continue;
        // The digits are neighbours: `b` cut here lies between unless it ends here; otherwise stay above `a`.
        if (i + 1 < b.size())
            return result.substr(0, i) + b[i];
        return result + middle(i + 1 < a.size() ? a.substr(i + 1) : std::u16string(), {});
    }
}

/// Whether there is no whole part after `whole`.
bool isLastWhole(const Rank& whole) {
    return whole.find_first_not_of(digits.back()) == Rank::npos;
}

Rank makeRank(const Rank& after, const Rank& before) {
    const Rank whole = wholePart(after);
    if (!before.empty() && whole == wholePart(before))
        return whole + middle(fraction(after), fraction(before));
    if (!isLastWhole(whole)) {
        Rank next = increment(whole);
        if (before.empty() || next < before)
            return next;
    }
    return whole + middle(fraction(after), {});
}

void makeRanks(const Rank& after, const Rank& before, std::size_t count, std::vector<Rank>& ranks) {
    if (count == 0)
        return;
    if (before.empty()) {
        ranks.push_back(makeRank(after, before));
        while (--count > 0)
            ranks.push_back(makeRank(ranks.back(), before));
        return;
    }
    // By halves: the ranks stay short.
    const Rank centre = makeRank(after, before);
    const std::size_t left = (count - 1) / 2;
    makeRanks(after, centre, left, ranks);
    ranks.push_back(centre);
    makeRanks(centre, before, count - 1 - left, ranks);
}

/// The ranks of all, if those at `stops` keep theirs.
std::vector<Rank> fillUp(const std::vector<std::optional<Rank>>& current, std::vector<std::size_t> stops) {
    stops.push_back(current.size());
    std::vector<Rank> ranks;
    ranks.reserve(current.size());
    for (const std::size_t stop : stops) {
        const Rank before = stop < current.size() ? *current[stop] : Rank();
        makeRanks(ranks.empty() ? Rank() : ranks.back(), before, stop - ranks.size(), ranks);
        if (stop < current.size())
            ranks.push_back(before);
    }
    return ranks;
}

/// Which ones lie at most `reach` places from one that has got a rank longer than `longest`.
std::vector<bool> findCrowd(const std::vector<std::optional<Rank>>& current, const std::vector<Rank>& ranks,
                            std::size_t longest, std::size_t reach) {
    std::vector<bool> isCrowded(ranks.size());
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        if (ranks[i].size() <= longest || ranks[i] == current[i])
            continue;
        for (std::size_t j = i - std::min(i, reach); j < std::min(ranks.size(), i + reach + 1); ++j)
            isCrowded[j] = true;
    }
    return isCrowded;
}

}  // namespace

bool isRank(const std::u16string& text) {
    const auto isDigit = [](char16_t unit) { return digits.find(unit) != std::u16string_view::npos; };
    if (text.empty() || text[0] < u'a' || text[0] > u'z' || text.size() < wholeLength(text))
        return false;
    const bool hasFraction = text.size() > wholeLength(text);
    return std::all_of(text.begin() + 1, text.end(), isDigit) && !(hasFraction && text.back() == digits.front()) &&
           text != beginning;
}

std::vector<Rank> makeRanks(const Rank& after, const Rank& before, std::size_t count) {
    std::vector<Rank> ranks;
    ranks.reserve(count);
    makeRanks(after, before, count, ranks);
    return ranks;
}

std::vector<Rank> arrangeRanks(const std::vector<std::optional<Rank>>& current) {
    std::vector<std::size_t> stops = store_support::findLongestAscent(current);
    std::size_t longest = longestRank;
    for (std::size_t reach = 1;; reach *= 2) {
        std::vector<Rank> ranks = fillUp(current, stops);
        const std::vector<bool> isCrowded = findCrowd(current, ranks, longest, reach);
        const auto end = std::remove_if(stops.begin(), stops.end(), [&](std::size_t stop) { return isCrowded[stop]; });
        if (end == stops.end())
            return ranks;
        stops.erase(end, stops.end());
        longest = roomyRank;
    }
}

}  // namespace stores::fixed_path
