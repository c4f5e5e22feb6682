/// Which frames a recorded stack holds.
#include "host/StackTrace.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using host::StackTrace;

namespace {

/// The return addresses of the calls of `captureBelow` that are under way, the innermost last.
std::vector<const void*> calls;

/// Records the stack below `depth` more calls.
__attribute__((noinline)) StackTrace captureBelow(int depth, std::size_t skippedFrames) {
    calls.push_back(__builtin_return_address(0));
    StackTrace trace = depth > 0 ? captureBelow(depth - 1, skippedFrames) : StackTrace::capture(skippedFrames);
    calls.push_back(nullptr);
    return trace;
}

/// The same, with the addresses that the trace has to hold from some frame on.
StackTrace capture(int depth, std::size_t skippedFrames, std::vector<const void*>& expected) {
    calls.clear();
    StackTrace trace = captureBelow(depth, skippedFrames);
    expected.assign(calls.begin(), calls.begin() + depth + 1);
    std::reverse(expected.begin(), expected.end());
    return trace;
}

TEST(StackTrace, StartsWithTheCaller) {
    std::vector<const void*> expected;
    const StackTrace trace = capture(2, 0, expected);
    ASSERT_GT(trace.size(), 4U);
    EXPECT_LT(trace.size(), StackTrace::capacity);
    // The first frame is inside the innermost call, which returns to the second.
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), trace.begin() + 1));
    EXPECT_EQ(std::count(trace.begin(), trace.end(), nullptr), 0);

    const StackTrace copy = trace;
    EXPECT_TRUE(std::equal(trace.begin(), trace.end(), copy.begin(), copy.end()));
}

TEST(StackTrace, LeavesOutSkippedFramesAndWhatDoesNotFit) {
    std::vector<const void*> expected;
    const StackTrace skipped = capture(2, 2, expected);
    EXPECT_TRUE(std::equal(expected.begin() + 1, expected.end(), skipped.begin()));

    const StackTrace deep = capture(1000, 501, expected);
    ASSERT_EQ(deep.size(), StackTrace::capacity);
    EXPECT_TRUE(std::equal(deep.begin(), deep.end(), expected.begin() + 500));

    EXPECT_EQ(capture(0, 10'000, expected).size(), 0U);
}

}  // namespace
