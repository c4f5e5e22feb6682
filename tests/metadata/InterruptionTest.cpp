/// Whom the wish to stop reaches.
#include "host/Interruption.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace {

using host::Interruption;

bool isStopped() {
    try {
        Interruption::throwIfRequested();
        return false;
    } catch (const host::InterruptedException&) {
        return true;
    }
}

TEST(Interruption, StopsWhatItsScopesAreAround) {
    Interruption all;
    Interruption part;
    const Interruption::Scope outer(all);
    {
        const Interruption::Scope inner(part);
        EXPECT_FALSE(isStopped());
        part.request();
        EXPECT_TRUE(isStopped());
        std::thread([] { EXPECT_FALSE(isStopped()); }).join();
    }
    EXPECT_FALSE(isStopped());
    std::thread([&] { all.request(); }).join();
    EXPECT_TRUE(isStopped());
    const Interruption none;
    const Interruption::Scope inner(none);
    EXPECT_TRUE(isStopped());
}

TEST(Interruption, IsIgnoredToTheEndOfTheInnermostScopeAndInIt) {
    Interruption all;
    all.request();
    Interruption::ignore();
    const Interruption::Scope outer(all);
    EXPECT_TRUE(isStopped());
    {
        const Interruption::Scope operation(all);
        Interruption::ignore();
        EXPECT_FALSE(isStopped());
        const Interruption::Scope inner(all);
        EXPECT_FALSE(isStopped());
    }
    EXPECT_TRUE(isStopped());
}

}  // namespace
