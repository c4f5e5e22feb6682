// What is particular to the store "postgresql": its server, the way there, and who else may have a hand in it.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <random>
#include <thread>

#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "stores/postgresql/PostgresqlManager.hpp"
#include "tests/faults/Scenarios.hpp"
#include "tests/stores/CuttingProxy.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/PostgresqlServer.hpp"
#include "tests/support/ServerSession.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;
using stores::postgresql::PostgresqlManager;

namespace {

using Clock = std::chrono::steady_clock;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class PostgresqlStoreTest : public testing::Test {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(u"postgresql", folder_.path()); }

    /// A store that waits for nobody for long.
    std::unique_ptr<MetadataManager> openImpatient(std::chrono::milliseconds limit) const {
        const auto runJob = [](project::metadata::FileJob job) { job.run(); };
        return std::make_unique<PostgresqlManager>(toPath(folder_ / "resources/project"), runJob, limit);
    }

    std::filesystem::path coreFile() const { return folder_ / "resources/project/Project.xml"; }

    /// The value of an attribute of the core file.
    std::string core(const std::string& key) const {
        const std::string text = readBytes(coreFile());
        const std::size_t begin = text.find(key + "=\"") + key.size() + 2;
        return text.substr(begin, text.find('"', begin) - begin);
    }

    void changeCore(const std::string& key, const std::string& value) const {
        std::string text = readBytes(coreFile());
        const std::string before = key + "=\"" + core(key);
        text.replace(text.find(before), before.size(), key + "=\"" + value);
        // Another file, as everybody replaces it.
        writeBytes(folder_ / "new", text);
        std::filesystem::rename(folder_ / "new", coreFile());
    }

    /// Runs a statement about the project, which it calls $project.
    std::string run(std::string sql) const {
        const std::string name = "$project";
        for (std::size_t at = sql.find(name); at != sql.npos; at = sql.find(name))
            sql.replace(at, name.size(), '\'' + core("Project") + '\'');
        return theServer().run("SET search_path = project_metadata; " + sql);
    }

    /// Expects that an error names the file, the server, the project and the cause.
    void expectNamed(const std::string& message, const std::string& cause) const {
        for (const std::string& part :
             {coreFile().string(), "service \"" + core("Service") + '"', core("Project"), cause})
            EXPECT_TRUE(contains(message, part)) << part << " in " << message;
    }

    TempFolder folder_;
};

TEST_F(PostgresqlStoreTest, AServerThatIsNotAllowedIsNotEvenAsked) {
    CuttingProxy elsewhere(theServer().socket());
    PostgresqlServer::addOtherService("elsewhere", "host=" + elsewhere.host() + "\nuser=postgres\ndbname=postgres");
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto refusal = [&] { return messageOf<MetadataReadFailure>([&] { open()->getNode(path({u"a"})); }); };
    const std::string genuine = readBytes(coreFile());
    const std::string project = core("Project");
    for (const auto& [key, value, cause] : std::vector<std::array<std::string, 3>>{
             {"Service", "elsewhere", "\"elsewhere/project_metadata\" is in the user's setting \"AllowedServers\""},
             {"Service", "test/project_metadata", "does not name a service"},
             {"Service", "", "does not name a service"},
             {"Service", "test host=/tmp", "does not name a service"},
             {"Schema", "public", "\"test/public\" is in the user's setting"},
             {"Schema", "project_metadata, public", "does not name a service and a schema"},
             {"Project", "", "does not say which project"},
             {"Project", project + "0", "does not say which project"},
             {"Project", "00000000-0000-4000-8000-000000000000", "there is no such project"}}) {
        changeCore(key, value);
        const std::string message = refusal();
        EXPECT_TRUE(contains(message, cause) && contains(message, coreFile().string())) << message;
        writeBytes(coreFile(), genuine);
    }
    changeCore("Service", "elsewhere");
    EXPECT_EQ(elsewhere.connections(), 0);
    const AllowedServers allowed("elsewhere");
    EXPECT_EQ(outline(*open()), "a(1)");
    EXPECT_EQ(elsewhere.connections(), 1);
}

TEST_F(PostgresqlStoreTest, NoSecretIsWrittenOrTold) {
    open()->setNode(path({u"a"}), *node(u"1"));
    PostgresqlServer::addOtherService(
        "secret", "host=" + theServer().folder().string() + "\nuser=nobody_here\npassword=S3cret\ndbname=postgres");
    const AllowedServers allowed("secret");
    changeCore("Service", "secret");
    const std::string message = messageOf<MetadataReadFailure>([&] { open(); });
    expectNamed(message, "role \"nobody_here\" does not exist");
    EXPECT_FALSE(contains(message, "S3cret")) << message;
    EXPECT_FALSE(contains(readBytes(coreFile()), "S3cret"));
}

TEST_F(PostgresqlStoreTest, WhatTheServerRefusesIsNamed) {
    const auto owner = open();
    owner->setNodes({{path({u"a"}), node(u"1")}, {path({u"a", u"b"}), node(u"2")}});
    theServer().run(
        "CREATE ROLE reader LOGIN; GRANT USAGE ON SCHEMA project_metadata TO reader;"
        "GRANT SELECT ON ALL TABLES IN SCHEMA project_metadata TO reader;"
        "CREATE ROLE worker LOGIN; GRANT USAGE ON SCHEMA project_metadata TO worker;"
        "GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA project_metadata TO worker;"
        "CREATE SCHEMA empty; GRANT USAGE ON SCHEMA empty TO worker;"
        "CREATE ROLE maker LOGIN; CREATE SCHEMA made AUTHORIZATION maker");
    for (const char* user : {"reader", "worker", "maker"})
        theServer().addService(user, user);
    const AllowedServers allowed("reader, worker, maker/made, worker/empty");
    changeCore("Service", "reader");
    {
        const auto reader = open();
        EXPECT_EQ(outline(*reader), "a(1) a/b(2)");
        expectNamed(messageOf<MetadataWriteFailure>([&] { reader->setNode(path({u"a"}), *node(u"3")); }),
                    "permission denied for table project");
    }
    changeCore("Service", "worker");
    open()->setPaths({path({u"c"}), path({u"a"})});
    EXPECT_EQ(outline(*owner), "c a(1)");
    changeCore("Schema", "empty");
    expectNamed(messageOf<MetadataReadFailure>([&] { open(); }), "no tables of projects");
    changeCore("Schema", "project_metadata");

    run("UPDATE format SET version = 2");
    expectNamed(messageOf<MetadataReadFailure>([&] { open(); }), "the version 2; only version 1 is known");
    run("UPDATE format SET version = 1");

    // A role that has a schema of its own needs nothing else.
    const TempFolder other;
    const auto store = openStore(u"postgresql", other.path());
    PostgresqlManager made(toPath(other / "resources/project"), [](project::metadata::FileJob job) { job.run(); });
    made.setOption(u"service", u"maker");
    made.setOption(u"schema", u"made");
    made.setNode(path({u"a"}), *node(u"1"));
    EXPECT_EQ(theServer().run("SELECT count(*) FROM made.path"), "2");
    // One without that right is told so, and makes nothing.
    const TempFolder none;
    PostgresqlManager unmade(toPath(none / "resources/project"), [](project::metadata::FileJob job) { job.run(); });
    unmade.setOption(u"service", u"worker");
    unmade.setOption(u"schema", u"empty");
    const std::string message = messageOf<MetadataWriteFailure>([&] { unmade.addPath(path({u"a"})); });
    EXPECT_TRUE(contains(message, "permission denied for schema empty")) << message;
    EXPECT_FALSE(std::filesystem::exists(none / "resources/project/Project.xml"));
}

TEST_F(PostgresqlStoreTest, ALockThatIsNotGotIsNamed) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto store = openImpatient(std::chrono::milliseconds(50));
    const Pipe ready;
    const std::string sql = "SET search_path = project_metadata; BEGIN; SELECT * FROM project WHERE id = '" +
                            core("Project") + "' FOR UPDATE; SELECT pg_sleep(1)";
    ChildProcess holder([&] { theServer().run(sql); });
    while (theServer().run("SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'PgSleep'") != "1")
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(store->getNode(path({u"a"}))->get(u"Value"), u"1") << "readers wait for nobody";
    expectNamed(messageOf<MetadataWriteFailure>([&] { store->setNode(path({u"a"}), *node(u"2")); }),
                "another program has held it for more than 50 ms");
    EXPECT_EQ(holder.wait(), 0);
    store->setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(outline(*open()), "a(2)");
}

TEST_F(PostgresqlStoreTest, ProjectsInOneSchemaDoNotSeeEachOther) {
    const TempFolder other;
    const auto stranger = openStore(u"postgresql", other.path());
    const auto store = open();
    for (MetadataManager* each : {store.get(), stranger.get()})
        each->setNodes({{path({u"a"}), node(u"1")}, {path({u"a", u"b"}), node(u"1")}});
    stranger->setNode(path({u"a", u"b"}), *node(u"2"));
    stranger->setPaths({path({u"c"}), path({u"a"})});
    EXPECT_EQ(outline(*store), "a(1) a/b(1)");
    stranger->removePath({});
    store->setNode(path({u"a", u"b"}), *node(u"3"));
    EXPECT_EQ(outline(*store), "a(1) a/b(3)");
    EXPECT_EQ(outline(*stranger), "");
}

TEST_F(PostgresqlStoreTest, RowsThatNoStoreWritesAreToldAndKept) {
    open()->setNodes({{path({u"a"}), node(u"1")}, {path({u"a", u"b"}), node(u"2")}, {path({u"c"}), node(u"3")}});
    const std::string a = run("SELECT id FROM path WHERE project = $project AND location = 'a'");
    const std::string b = run("SELECT id FROM path WHERE project = $project AND location = 'b'");
    struct Case {
        std::string damage;
        std::string problem;  ///< what is told of it
        std::string reads;    ///< what can be read; empty if that is an error
    };
    const Case cases[] = {
        {"node = '\\xff' WHERE location = 'b'", "has a node that cannot be read", ""},
        {"location = 'x' WHERE location = 'b'", "what does not fit its number", "a(1) c(3)"},
        {"type = '\\xff00' WHERE location = 'b'", "what does not fit its number", "a(1) c(3)"},
        {"parent = '" + b + "' WHERE location = 'a'", "has no way to the root path", "c(3)"},
        {"parent = id WHERE location = 'a'", "has no way to the root path", "c(3)"},
        {"parent = gen_random_uuid() WHERE location = 'a'", "has no way to the root path", "c(3)"},
    };
    run("CREATE TABLE kept AS SELECT * FROM path WHERE project = $project");
    for (const Case& each : cases) {
        SCOPED_TRACE(each.damage);
        run("UPDATE path SET " + each.damage + " AND project = $project");
        const auto store = open();
        std::string told;
        for (const auto& damage : dynamic_cast<project::metadata::DamageReporter&>(*store).findDamage())
            told += host::toUtf8(damage.problem) + "; ";
        EXPECT_TRUE(contains(told, each.problem)) << told;
        if (each.reads.empty())
            expectNamed(messageOf<MetadataReadFailure>([&] { outline(*store); }), "is damaged");
        else
            EXPECT_EQ(outline(*store), each.reads);
        for (const auto& change :
             std::vector<std::function<void()>>{[&] {
                                                    store->setNode(path({u"a", u"b"}), *node(u"4"));
                                                },
                                                [&] { store->removePath(path({u"a"})); },
                                                [&] {
                                                    store->setPaths({path({u"a"}), path({u"c"})});
                                                }}) {
            const std::string content =
                "SELECT string_agg(path::text, ';' ORDER BY id) FROM path WHERE project = $project";
            const std::string before = run(content);
            const std::string message = messageOf<MetadataWriteFailure>(change);
            EXPECT_TRUE(contains(message, "damage")) << message;
            EXPECT_EQ(run(content), before);
        }
        run("DELETE FROM path WHERE project = $project; INSERT INTO path SELECT * FROM kept");
    }
    run("DROP TABLE kept");
}

TEST_F(PostgresqlStoreTest, WhatTheServerAsksForIsTriedAgain) {
    open()->setNode(path({u"a"}), *node(u"1"));
    run("CREATE SEQUENCE tries; CREATE FUNCTION fail() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN"
        " IF nextval('project_metadata.tries') <= 3 THEN RAISE EXCEPTION 'again' USING ERRCODE = '40001'; END IF;"
        " RETURN NEW; END $$; CREATE TRIGGER fail BEFORE UPDATE ON project FOR EACH ROW EXECUTE FUNCTION fail()");
    open()->setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(run("SELECT last_value FROM tries"), "4");
    EXPECT_EQ(outline(*open()), "a(2)");
    run("ALTER SEQUENCE tries RESTART; CREATE OR REPLACE FUNCTION fail() RETURNS trigger LANGUAGE plpgsql AS"
        " $$ BEGIN RAISE EXCEPTION 'again and again' USING ERRCODE = '40001'; END $$");
    expectNamed(messageOf<MetadataWriteFailure>(
                    [&] { openImpatient(std::chrono::milliseconds(200))->setNode(path({u"a"}), *node(u"3")); }),
                "again and again");
    run("DROP TRIGGER fail ON project; DROP FUNCTION fail; DROP SEQUENCE tries");
    EXPECT_EQ(outline(*open()), "a(2)");
}

TEST_F(PostgresqlStoreTest, AFullDiskLeavesTheOldContent) {
    constexpr rlim_t largestFile = 6 << 20;
    PostgresqlServer server({}, memoryFolder(), largestFile);
    server.addService("full");
    const AllowedServers allowed("full");
    PostgresqlManager store(toPath(folder_ / "resources/project"), [](project::metadata::FileJob job) { job.run(); });
    store.setOption(u"service", u"full");
    store.setNode(path({u"a"}), *node(u"1"));
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    std::mt19937 random(1);  // NOLINT: the same in each run
    for (int i = 0; i < 40; ++i) {
        std::u16string value;
        while (value.size() < 200'000)
            value += static_cast<char16_t>(u'0' + random() % 64);
        nodes[path({u"large", number(i)})] = node(value);
    }
    expectNamed(messageOf<MetadataWriteFailure>([&] { store.setNodes(nodes); }), "File too large");
    EXPECT_EQ(outline(store), "a(1)");
    store.setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(outline(*open()), "a(2)");
}

TEST_F(PostgresqlStoreTest, NothingIsLostWhenTheServerRestarts) {
    PostgresqlServer server({"fsync=on"}, std::filesystem::temp_directory_path());
    server.addService("restarting");
    const AllowedServers allowed("restarting");
    const auto runJob = [](project::metadata::FileJob job) { job.run(); };
    PostgresqlManager first(toPath(folder_ / "resources/project"), runJob);
    first.setOption(u"service", u"restarting");
    first.addPath(path({u"n"}));
    const Pipe reports;
    ChildProcess writer([&] {
        const auto store = open();
        for (int i = 0;; ++i) {
            store->setNodes({{path({u"n", number(i)}), node(number(i))}, {path({u"last"}), node(number(i))}});
            reports.write(i);
        }
    });
    int last = -1;
    const auto waitForMore = [&] {
        const int goal = last + 20;
        const auto end = Clock::now() + std::chrono::seconds(60);
        while (last < goal && Clock::now() < end) {
            while (const auto report = reports.read())
                last = *report;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_GE(last, goal) << "the writer has given up";
    };
    for (int i = 0; i < 4; ++i) {
        waitForMore();
        i % 2 == 0 ? server.crash() : server.stop();
        server.start();
    }
    waitForMore();
    EXPECT_EQ(writer.kill(), -SIGKILL);
    const auto store = open();
    const auto children = store->getChildren(path({u"n"}));
    ASSERT_GE(children.size(), static_cast<std::size_t>(last) + 1);
    for (std::size_t i = 0; i < children.size(); ++i)
        EXPECT_EQ(store->getNode(children[i])->get(u"Value"), number(static_cast<int>(i)));

    server.stop();
    expectNamed(messageOf<MetadataReadFailure>([&] { open(); }), "No such file or directory");
    server.start();
    // What the writer had sent before its death may have been done after it.
    auto later = store->getChildren(path({u"n"}));
    ASSERT_TRUE(later.size() == children.size() || later.size() == children.size() + 1);
    later.resize(children.size());
    EXPECT_EQ(later, children);
}

TEST_F(PostgresqlStoreTest, RoundTripsDoNotGrowWithTheProject) {
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
TEST_F(PostgresqlStoreTest, AServerThatDoesNotKnowTheProjectYetReadsNoMoreOfIt) {
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

TEST_F(PostgresqlStoreTest, AStoreSeesItsOwnChangesHoweverItHasLookedMeanwhile) {
    const auto store = open();
    for (int i = 0; i < 100; ++i) {
        store->setNode(path({u"a"}), *node(number(i)));
        store->addPath(path({u"a"}));
        ASSERT_EQ(store->getNode(path({u"a"}))->get(u"Value"), number(i));
    }
}

/// Where a look would come too late to explain it, those who wait are told of a change; elsewhere they look.
TEST_F(PostgresqlStoreTest, WhoWaitsLearnsOfChanges) {
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
TEST_F(PostgresqlStoreTest, NobodyIsToldWhoDoesNotWait) {
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

/// Whichever message is the last one that gets through, a change ends with the new content, or with an error and with
/// one of both; and it is never made twice.
TEST_F(PostgresqlStoreTest, ACutAtAnyMessageIsFoundOut) {
    CuttingProxy proxy(theServer().socket());
    PostgresqlServer::addOtherService("proxy", "host=" + proxy.host() + "\nuser=postgres\ndbname=postgres");
    const AllowedServers allowed("proxy");
    std::map<std::string, int> outcomes;
    for (const Scenario& scenario : allScenarios()) {
        if (!scenario.change || !scenario.prepare || scenario.isInterrupted)
            continue;
        for (const bool isForGood : {false, true}) {
            int messages = 1;
            // Without time for all, those that one scenario leaves out are tried in others.
            const int step = std::getenv("PROJECT_METADATA_SOAK") != nullptr ? 1 : 7;
            const int first = static_cast<int>(&scenario - allScenarios().data()) + (isForGood ? 3 : 0);
            for (int cut = 0; cut <= messages; cut += cut == 0 ? 1 + first % step : step) {
                SCOPED_TRACE(std::string(scenario.name) + ", cut after message " + std::to_string(cut));
                std::filesystem::remove_all(folder_ / "resources");
                scenario.prepare(*open());
                const Content before = read(*open());
                const std::string batches = "SELECT batch FROM project WHERE id = $project";
                const int batchBefore = std::stoi(run(batches));
                changeCore("Service", "proxy");
                proxy.cutAfter(cut, isForGood);
                std::string error;
                try {
                    const auto store = openImpatient(std::chrono::milliseconds(isForGood ? 20 : 2000));
                    scenario.change(*store);
                } catch (const project::exception::ProjectException& failure) {
                    error = failure.what();
                    expectNamed(error, "");
                }
                if (cut == 0)
                    messages = proxy.count();
                proxy.cutAfter(0, false);
                changeCore("Service", "test");
                waitForSessions();
                const Content found = read(*open());
                const bool isNew = found != before;
                EXPECT_EQ(std::stoi(run(batches)), batchBefore + (isNew ? 1 : 0));
                scenario.change(*open());
                EXPECT_EQ(found == read(*open()), isNew) << "neither the old content nor the new one";
                const bool isUnknown = contains(error, "whether it was made cannot be found out");
                EXPECT_TRUE(!error.empty() || isNew) << "a success that was none";
                EXPECT_TRUE(error.empty() || isUnknown || !isNew) << "a failure that was none: " << error;
                ++outcomes[(error.empty() ? "succeeded"
                            : isUnknown   ? "unknown"
                                          : "failed") +
                           std::string(isNew ? ", new" : ", old") + (isForGood ? ", for good" : "")];
            }
        }
    }
    for (const auto& [outcome, count] : outcomes)
        std::printf("cut connections: %s: %d\n", outcome.c_str(), count);
    for (const char* outcome :
         {"succeeded, new", "failed, old", "failed, old, for good", "unknown, new, for good", "unknown, old, for good"})
        EXPECT_GT(outcomes[outcome], 0) << outcome;
    EXPECT_EQ(outcomes["unknown, new"] + outcomes["unknown, old"], 0);
}

/// Whichever message is the last one that gets through while the first project of a schema is made, it is there as a
/// whole, or there is an error and no project.
TEST_F(PostgresqlStoreTest, ACutWhileAProjectIsMadeLeavesAllOrNothing) {
    CuttingProxy proxy(theServer().socket());
    PostgresqlServer::addOtherService("cutting", "host=" + proxy.host() + "\nuser=postgres\ndbname=postgres");
    const AllowedServers allowed("cutting/cut, test/cut");
    std::map<std::string, int> outcomes;
    for (const bool isForGood : {false, true}) {
        int messages = 1;
        const int step = std::getenv("PROJECT_METADATA_SOAK") != nullptr ? 1 : 5;
        for (int cut = 0; cut <= messages; cut += cut == 0 ? 1 + (isForGood ? step / 2 : 0) : step) {
            SCOPED_TRACE("cut after message " + std::to_string(cut));
            std::filesystem::remove_all(folder_ / "resources");
            theServer().run("SET client_min_messages = warning; DROP SCHEMA IF EXISTS cut CASCADE; CREATE SCHEMA cut");
            proxy.cutAfter(cut, isForGood);
            bool isMade = true;
            try {
                const auto runJob = [](project::metadata::FileJob job) { job.run(); };
                const std::chrono::milliseconds limit(isForGood && cut > 0 ? 20 : 2000);
                PostgresqlManager store(toPath(folder_ / "resources/project"), runJob, limit);
                store.setOption(u"service", u"cutting");
                store.setOption(u"schema", u"cut");
                store.setNodes({{path({u"a"}), node(u"1")}, {path({u"a", u"b"}), node(u"2")}});
            } catch (const MetadataWriteFailure& failure) {
                isMade = false;
                EXPECT_TRUE(contains(failure.what(), "the service \"cutting\"")) << failure.what();
            }
            if (cut == 0)
                messages = proxy.count();
            proxy.cutAfter(0, false);
            waitForSessions();
            EXPECT_EQ(std::filesystem::exists(coreFile()), isMade);
            if (isMade) {
                changeCore("Service", "test");
                EXPECT_EQ(outline(*open()), "a(1) a/b(2)");
                EXPECT_EQ(theServer().run("SELECT count(*) FROM cut.path"), "3");
            } else if (!isForGood && theServer().run("SELECT to_regclass('cut.path')") != "") {
                EXPECT_EQ(theServer().run("SELECT count(*) FROM cut.path"), "0") << "a failure that was none";
            }
            ++outcomes[isMade ? "made" : isForGood ? "not made, for good" : "not made"];
        }
        EXPECT_GT(messages, 20);
    }
    for (const auto& [outcome, count] : outcomes)
        std::printf("cut while made: %s: %d\n", outcome.c_str(), count);
    EXPECT_GT(outcomes["made"], 1);
    EXPECT_GT(outcomes["not made, for good"], 1);
}

/// Each of many clients knows what is below its own folder, whatever the others do; and all add to one number.
TEST_F(PostgresqlStoreTest, SixteenClientsLoseNothing) {
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
