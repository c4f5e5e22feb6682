// What is particular to the store "postgresql": its server, and who else may have a hand in it.

#include <gtest/gtest.h>

#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/PostgresqlServer.hpp"

using namespace test;

namespace {

TEST(PostgresqlStoreTest, Works) {
    const TempFolder folder;
    openStore(u"postgresql", folder.path())->setNode(path({u"a"}), *node(u"1"));
    EXPECT_EQ(outline(*openStore(u"postgresql", folder.path())), "a(1)");
}

}  // namespace
