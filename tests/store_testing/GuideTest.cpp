// The guide for those who write stores states every rule that is checked, in the same words.

#include <gtest/gtest.h>

#include <sstream>

#include "store_testing/StoreContract.hpp"
#include "tests/support/TempFolder.hpp"

TEST(GuideTest, StatesEveryRule) {
    // Lines break anywhere.
    std::istringstream words(test::readBytes(GUIDE));
    std::string guide;
    for (std::string word; words >> word;)
        guide += word + ' ';
    for (const auto& rule : project::store_testing::getRules()) {
        const std::string stated = std::string("- **") + rule.name + "**: " + rule.statement + ' ';
        EXPECT_NE(guide.find(stated), std::string::npos) << stated;
    }
}
