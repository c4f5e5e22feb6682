/// Which frames a recorded stack holds.
#include "host/StackTrace.hpp"

#include <gtest/gtest.h>

#include <algorithm>

TEST(StackTrace, StartsWithTheCallerOrTheFramesAboveIt) {
    const auto whole = host::StackTrace::capture(0);
    const auto skipped = host::StackTrace::capture(1);
    EXPECT_EQ(*skipped.begin(), __builtin_return_address(0));
    EXPECT_TRUE(std::equal(whole.begin() + 1, whole.end(), skipped.begin(), skipped.end()));
}
