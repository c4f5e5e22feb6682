/// What the library keeps for the whole process outlives everybody who uses it there.
#include <gtest/gtest.h>

#include "tests/host/Helpers.hpp"

namespace {

constexpr const char* twice = "warning: project::metadata: this is written twice\n";

TEST(EndOfProcess, ObjectsThatAreDestroyedLateCanUseTheLibrary) {
    const std::string errors = std::string(twice) + twice;
    EXPECT_EQ(test::runCommand(END_OF_PROCESS " 2>&1 >/dev/null"), errors);
    EXPECT_EQ(test::runCommand(END_OF_PROCESS " 2>/dev/null"), "as before\n");
}

#ifdef VALGRIND
TEST(EndOfProcess, TheyTouchNothingThatIsGone) {
    EXPECT_EQ(test::runCommand(VALGRIND " -q --error-exitcode=9 " END_OF_PROCESS), "as before\n");
}
#endif

}  // namespace
