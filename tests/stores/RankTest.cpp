#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "stores/fixed_path/Rank.hpp"

using namespace stores::fixed_path;

namespace {

bool isAscending(const std::vector<Rank>& ranks) {
    return std::is_sorted(ranks.begin(), ranks.end(), std::less_equal<>()) &&
           std::all_of(ranks.begin(), ranks.end(), isRank);
}

TEST(RankTest, CountingUpStaysShortAndAscends) {
    const std::vector<Rank> ranks = makeRanks({}, {}, 100000);
    EXPECT_TRUE(isAscending(ranks));
    EXPECT_EQ(ranks.front(), u"a1");
    EXPECT_LE(ranks.back().size(), 4U);
}

TEST(RankTest, ThereIsAlwaysRoomBetweenTwo) {
    std::mt19937 random(1);
    std::vector<Rank> ranks = makeRanks({}, {}, 2);
    for (int i = 0; i < 3000; ++i) {
        // At the front, behind the first, or anywhere, so that some places get crowded.
        const std::size_t place = i % 3 == 2 ? random() % (ranks.size() + 1) : static_cast<std::size_t>(i % 3);
        const Rank after = place == 0 ? Rank() : ranks[place - 1];
        const Rank before = place == ranks.size() ? Rank() : ranks[place];
        const std::vector<Rank> made = makeRanks(after, before, 1 + random() % 5);
        ranks.insert(ranks.begin() + static_cast<std::ptrdiff_t>(place), made.begin(), made.end());
    }
    EXPECT_TRUE(isAscending(ranks));
}

TEST(RankTest, ArrangingChangesAsFewAsPossible) {
    const std::vector<Rank> ranks = makeRanks({}, {}, 100);
    std::vector<std::optional<Rank>> order(ranks.begin(), ranks.end());
    std::rotate(order.begin(), order.begin() + 90, order.end());  // the last ten come first
    order.insert(order.begin() + 50, std::nullopt);
    order[70] = order[71];  // two share a rank, as after a merge
    const std::vector<Rank> arranged = arrangeRanks(order);
    EXPECT_TRUE(isAscending(arranged));
    std::size_t changed = 0;
    for (std::size_t i = 0; i < order.size(); ++i)
        changed += order[i] != arranged[i] ? 1U : 0U;
    EXPECT_EQ(changed, 12U);
}

TEST(RankTest, RanksStayShortWhereverSiblingsAreAdded) {
    for (const auto& findPlace :
         std::vector<std::size_t (*)(std::size_t)>{[](std::size_t) { return std::size_t{0}; },
                                                   [](std::size_t count) { return std::min<std::size_t>(1, count); },
                                                   [](std::size_t count) { return count / 2; }}) {
        std::vector<std::optional<Rank>> siblings;
        std::size_t changed = 0;
        for (int i = 0; i < 600; ++i) {
            const std::size_t place = findPlace(siblings.size());
            siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(place), std::nullopt);
            const std::vector<Rank> arranged = arrangeRanks(siblings);
            for (std::size_t j = 0; j < siblings.size(); ++j) {
                changed += siblings[j] != arranged[j] ? 1U : 0U;
                ASSERT_LE(arranged[j].size(), 16U);
            }
            ASSERT_TRUE(isAscending(arranged));
            siblings.assign(arranged.begin(), arranged.end());
        }
        EXPECT_LT(changed, 600U * 6U) << "more files are touched than need be";
    }
}

TEST(RankTest, ThereIsRoomAfterTheHighest) {
    const Rank highest = u"z" + std::u16string(26, u'z');
    ASSERT_TRUE(isRank(highest));
    std::vector<Rank> ranks = makeRanks(highest, {}, 3);
    ranks.insert(ranks.begin(), highest);
    EXPECT_TRUE(isAscending(ranks));
}

TEST(RankTest, TellsRanksFromOtherTexts) {
    for (const char16_t* text : {u"", u"a", u"a0", u"A1", u"b1", u"a1 ", u"a10", u"1a", u"a1V0", u"a\u00E4"})
        EXPECT_FALSE(isRank(text));
    for (const char16_t* text : {u"a1", u"az", u"b00", u"a0V", u"c000z"})
        EXPECT_TRUE(isRank(text));
}

}  // namespace
