// What the store "postgresql" asks of a large project: few questions, and of the server few rows.

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "tests/stores/CuttingProxy.hpp"
#include "tests/stores/PostgresqlFixture.hpp"
#include "tests/support/ServerSession.hpp"

using namespace test;

namespace {

class PostgresqlCostTest : public PostgresqlFixture {};

TEST_F(PostgresqlCostTest, RoundTripsDoNotGrowWithTheProject) {
    constexpr int folders = 100;
    constexpr int files = 200;
    open()->addPath(path({u"0"}));
    CuttingProxy proxy(theServer().socket());
    PostgresqlServer::addOtherService("counted", "host=" + proxy.host() + "\nuser=postgres\ndbname=postgres");
    const AllowedServers allowed("counted");
    changeCore("Service", "counted");
    auto store = open();
    // The session and the version of the tables, and the number of the last batch.
    EXPECT_EQ(proxy.takeRoundTrips(), 2);
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    std::vector<MetadataPath> paths;
    for (int i = 0; i < folders; ++i) {
        for (int j = 0; j < files; ++j) {
            paths.push_back(path({number(i), number(j)}));
            nodes[paths.back()] = node(number(j));
        }
    }
    // What there is, and the batch.
    store->setNodes(nodes);
    EXPECT_EQ(proxy.takeRoundTrips(), 2);
    store->setPaths(paths);
    EXPECT_EQ(proxy.takeRoundTrips(), 2);
    store->setNode(paths.front(), *node(u"new"));
    EXPECT_EQ(proxy.takeRoundTrips(), 2);
    store->setNode(paths.front(), *node(u"new"));
    EXPECT_EQ(proxy.takeRoundTrips(), 1);
    store = nullptr;  // the proxy serves one after the other
    store = open();
    proxy.takeRoundTrips();
    store->getNode(paths.back());
    EXPECT_EQ(proxy.takeRoundTrips(), 1);
    store = nullptr;
    // Lists of twice as many paths each time up to 1024; and a look for each round trip's time that the reader takes.
    constexpr auto delay = std::chrono::milliseconds(5);
    proxy.delay(delay);
    const auto start = Clock::now();
    EXPECT_EQ(read(*open()).size(), 1U + folders + folders * files);
    const auto time = Clock::now() - start;
    const int roundTrips = proxy.takeRoundTrips();
    EXPECT_LT(roundTrips, 2 + 20 + 2 * 15 + (time - roundTrips * delay) / delay);

    // What others change costs what was read ahead, but not the reading ahead.
    constexpr int changes = 20;
    changeCore("Service", "test");
    const TempFolder copy;
    std::filesystem::copy(folder_ / "resources", copy / "resources", std::filesystem::copy_options::recursive);
    const auto other = openStore(u"postgresql", copy.path());
    changeCore("Service", "counted");
    store = open();
    proxy.takeRoundTrips();
    const auto again = Clock::now();
    int children = 0;
    for (const MetadataPath& folder : store->getChildren({})) {
        for (const MetadataPath& file : store->getChildren(folder)) {
            store->getChildren(file);
            if (++children % (folders * files / changes) == 1)
                other->setNode(paths.back(), *node(number(children)));
        }
    }
    EXPECT_EQ(children, folders * files);
    const auto timeAgain = Clock::now() - again;
    const int more = proxy.takeRoundTrips();
    EXPECT_LT(more, 20 + 2 * 15 + 10 * changes + (timeAgain - more * delay) / delay);
}

/// The server's statistics say nothing of a project that has come after them, and it plans as if that had no rows.
TEST_F(PostgresqlCostTest, AServerThatDoesNotKnowTheProjectYetReadsNoMoreOfIt) {
    constexpr int count = 3000;
    std::vector<MetadataPath> paths;
    for (int i = 0; i < count; ++i)
        paths.push_back(path({number(i / 100), number(i)}));
    const TempFolder other;
    openStore(u"postgresql", other.path())->setPaths(paths);
    theServer().run("ALTER TABLE project_metadata.path SET (autovacuum_enabled = off); ANALYZE project_metadata.path");
    open()->setPaths(paths);
    const auto countRead = [] {
        waitForSessions();
        return std::stoi(theServer().run(
            "SELECT seq_tup_read + idx_tup_fetch + (SELECT sum(idx_tup_read) FROM pg_stat_user_indexes AS index"
            " WHERE index.relid = tables.relid) FROM pg_stat_user_tables AS tables WHERE relname = 'path'"));
    };
    const int before = countRead();
    for (int i = 0; i < 10; ++i) {
        const MetadataPath& one = paths[static_cast<std::size_t>(i * 299)];
        EXPECT_EQ(open()->getNode(one), nullptr);
        EXPECT_TRUE(open()->getChildren(one).empty());
        open()->setNode(one, *node(number(i)));
        open()->setNode(one, *node(u"other"));
        open()->removePath(one);
        open()->addPath(one);
    }
    EXPECT_LT(countRead() - before, 10 * 200);
    theServer().run("ALTER TABLE project_metadata.path RESET (autovacuum_enabled)");
}

}  // namespace
