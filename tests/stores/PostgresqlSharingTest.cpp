// Several clients of one project in the store "postgresql": nothing is lost, and who waits learns of changes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "project/metadata/MetadataErrors.hpp"
#include "tests/stores/PostgresqlFixture.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/ServerSession.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;

namespace {

class PostgresqlSharingTest : public PostgresqlFixture {};

TEST_F(PostgresqlSharingTest, AStoreSeesItsOwnChangesHoweverItHasLookedMeanwhile) {
    const auto store = open();
    for (int i = 0; i < 100; ++i) {
        store->setNode(path({u"a"}), *node(number(i)));
        store->addPath(path({u"a"}));
        ASSERT_EQ(store->getNode(path({u"a"}))->get(u"Value"), number(i));
    }
}

/// Where a look would come too late to explain it, those who wait are told of a change; elsewhere they look.
TEST_F(PostgresqlSharingTest, WhoWaitsLearnsOfChanges) {
    open()->setNode(path({u"a"}), *node(u"0"));
    const TempFolder other;
    const auto stranger = openStore(u"postgresql", other.path());
    theServer().run(
        "CREATE ROLE silent LOGIN; GRANT USAGE ON SCHEMA project_metadata TO silent;"
        "GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA project_metadata TO silent;"
        "REVOKE EXECUTE ON FUNCTION pg_notify FROM PUBLIC");
    theServer().addService("silent", "silent");
    const AllowedServers allowed("silent");
    int value = 0;
    const auto change = [&] { open()->setNode(path({u"a"}), *node(number(++value))); };
    std::array<int, 2> readable{};
    ASSERT_EQ(pipe(readable.data()), 0);
    struct Case {
        const char* what;
        const char* service;
        std::function<void()> meanwhile;
        std::int64_t batches;  ///< how many more there are when the waiting ends
        bool isShort;          ///< whether it ends before its time is over
    };
    const Case cases[] = {
        {"a change", "test", change, 1, true},
        {"nothing", "test", [] {}, 0, false},
        {"a change of another project", "test", [&] { stranger->addPath(path({number(++value)})); }, 0, false},
        {"a change after the connection broke", "test",
         [&] {
             theServer().run(
                 "SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
                 " WHERE application_name = 'project_metadata'");
             change();
         },
         1, true},
        {"a change of which nobody may be told", "silent", change, 1, true},
        {"something else", "test", [&] { EXPECT_EQ(write(readable[1], "", 1), 1); }, 0, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        changeCore("Service", each.service);
        const auto limit = std::chrono::milliseconds(each.isShort ? 8000 : 700);
        const auto store = open();
        auto& content = dynamic_cast<project::metadata::RemoteContent&>(*store);
        const std::int64_t version = content.getContentVersion();
        std::thread others([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            each.meanwhile();
        });
        const auto start = Clock::now();
        EXPECT_EQ(content.waitForChange(version, readable[0], limit), version + each.batches);
        EXPECT_EQ(Clock::now() - start < limit, each.isShort);
        others.join();
    }
    theServer().run("GRANT EXECUTE ON FUNCTION pg_notify TO PUBLIC");
    for (const int end : readable)
        close(end);
    changeCore("Service", "test");
    // A server that has all that is needed, but does nothing with it.
    theServer().run(
        "SET allow_system_table_mods = on; ALTER FUNCTION pg_notify RENAME TO kept;"
        "CREATE FUNCTION pg_catalog.pg_notify(text, text) RETURNS void LANGUAGE plpgsql"
        " AS $$ BEGIN RAISE feature_not_supported; END $$");
    const auto store = open();
    auto& content = dynamic_cast<project::metadata::RemoteContent&>(*store);
    content.waitForChange(content.getContentVersion(), -1, std::chrono::milliseconds(0));
    change();
    EXPECT_EQ(open()->getNode(path({u"a"}))->get(u"Value"), number(value));
    theServer().run("DROP FUNCTION pg_catalog.pg_notify; ALTER FUNCTION kept RENAME TO pg_notify");
    run("DELETE FROM project WHERE id = $project");
    expectNamed(messageOf<MetadataReadFailure>([&] { content.waitForChange(0, -1, std::chrono::seconds(8)); }),
                "there is no such project");
    std::filesystem::remove(coreFile());
    EXPECT_EQ(content.waitForChange(1, -1, std::chrono::seconds(8)), 0);
}

/// All transactions that tell of something take turns on the whole server, so none does where nobody waits.
TEST_F(PostgresqlSharingTest, NobodyIsToldWhoDoesNotWait) {
    int value = 0;
    const auto change = [&] { open()->setNode(path({u"a"}), *node(number(++value))); };
    change();
    theServer().run(
        "CREATE SEQUENCE told; SET allow_system_table_mods = on; ALTER FUNCTION pg_notify RENAME TO kept;"
        "CREATE FUNCTION pg_catalog.pg_notify(text, text) RETURNS void LANGUAGE sql"
        " AS $$ SELECT nextval('public.told'); SELECT kept($1, $2) $$");
    const auto countTold = [] {
        return theServer().run("SELECT CASE WHEN is_called THEN last_value ELSE 0 END FROM told");
    };
    change();
    EXPECT_EQ(countTold(), "0");
    auto waiting = open();
    auto& content = dynamic_cast<project::metadata::RemoteContent&>(*waiting);
    content.waitForChange(content.getContentVersion(), -1, std::chrono::milliseconds(0));
    change();
    EXPECT_EQ(countTold(), "1");
    waiting.reset();
    waitForSessions();
    change();
    EXPECT_EQ(countTold(), "1");
    theServer().run(
        "SET allow_system_table_mods = on; DROP FUNCTION pg_catalog.pg_notify;"
        "ALTER FUNCTION kept RENAME TO pg_notify; DROP SEQUENCE told");
}

/// Each of many clients knows what is below its own folder, whatever the others do; and all add to one number.
TEST_F(PostgresqlSharingTest, SixteenClientsLoseNothing) {
    constexpr int clients = 16;
    const auto time = std::chrono::seconds(std::getenv("PROJECT_METADATA_SOAK") != nullptr ? 60 : 3);
    const MetadataPath total = path({u"total"});
    open()->setNode(total, *node(u"0"));
    const Pipe reports;
    const auto work = [&](int client) {
        const auto store = open();
        std::mt19937 random(static_cast<unsigned>(client));
        std::map<int, std::string> model;
        int added = 0, changes = 0, refused = 0;
        for (const auto end = Clock::now() + time; Clock::now() < end; ++changes) {
            const int place = static_cast<int>(random() % 10);
            const MetadataPath own = path({u"client " + number(client), number(place)});
            const std::u16string value = number(changes);
            switch (random() % 4) {
                case 0:
                    store->removePath(own);
                    model.erase(place);
                    break;
                case 1: {
                    const int now = std::stoi(host::toUtf8(store->getNode(total)->get(u"Value")));
                    const auto next = node(number(now + 1));
                    next->put(u"By", number(client) + u"." + value);
                    try {
                        store->setNodes({{own, node(value)}, {total, next}});
                    } catch (const MetadataWriteFailure& error) {
                        if (!contains(error.what(), "read it again first"))
                            throw;
                        ++refused;
                        break;
                    }
                    ++added;
                    model[place] = host::toUtf8(value);
                    break;
                }
                default:
                    store->setNode(own, *node(value));
                    model[place] = host::toUtf8(value);
            }
        }
        std::map<int, std::string> found;
        const auto fresh = open();
        for (const MetadataPath& child : fresh->getChildren(path({u"client " + number(client)})))
            found[std::stoi(host::toUtf8(child.getLeaf().getLocation()))] =
                host::toUtf8(fresh->getNode(child)->get(u"Value"));
        if (found != model)
            throw std::runtime_error("something was lost");
        reports.write(added);
        reports.write(changes);
        reports.write(refused);
    };
    std::deque<ChildProcess> children;
    for (int i = 0; i < clients; ++i)
        children.emplace_back([&] { work(i); });
    for (ChildProcess& child : children)
        EXPECT_EQ(child.wait(), 0);
    int added = 0, changes = 0, refused = 0;
    while (const auto report = reports.read()) {
        added += *report;
        changes += *reports.read();
        refused += *reports.read();
    }
    std::printf("16 clients: %d changes in %d s, %d additions, %d refused\n", changes, static_cast<int>(time.count()),
                added, refused);
    EXPECT_EQ(open()->getNode(total)->get(u"Value"), number(added));
    EXPECT_GT(added, clients);
    EXPECT_GT(refused, 0);
}

}  // namespace
