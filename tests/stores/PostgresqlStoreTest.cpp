// The server of the store "postgresql": which one is asked, what nobody is told, how refusals and damage are named.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "tests/stores/CollectedDamage.hpp"
#include "tests/stores/CuttingProxy.hpp"
#include "tests/stores/PostgresqlFixture.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/ServerSession.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;
using stores::postgresql::PostgresqlManager;

namespace {

class PostgresqlStoreTest : public PostgresqlFixture {};

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

TEST_F(PostgresqlStoreTest, AnOlderContentOfTheServerIsNotOverwrittenUnseen) {
    open()->setNode(path({u"a"}), *node(u"old"));
    run("CREATE TABLE backup AS SELECT * FROM path WHERE project = $project");
    open()->setNode(path({u"a"}), *node(u"new"));
    const auto store = open();
    store->setNode(path({u"b"}), *node(u"1"));
    EXPECT_EQ(outline(*store), "a(new) b(1)");
    run("DELETE FROM path WHERE project = $project; INSERT INTO path SELECT * FROM backup; DROP TABLE backup;"
        "UPDATE project SET batch = 1 WHERE id = $project; DELETE FROM batch WHERE project = $project AND number > 1");
    EXPECT_THROW(store->setNode(path({u"a"}), *node(u"mine")), MetadataWriteFailure);
    EXPECT_EQ(outline(*store), "a(old)");
    store->setNode(path({u"a"}), *node(u"mine"));
    EXPECT_EQ(outline(*open()), "a(mine)");
}

TEST_F(PostgresqlStoreTest, RowsThatNoStoreWritesAreToldAndKept) {
    open()->setNodes({{path({u"a"}), node(u"1")}, {path({u"a", u"b"}), node(u"2")}, {path({u"c"}), node(u"3")}});
    const std::string a = run("SELECT id FROM path WHERE project = $project AND location = 'a'");
    const std::string b = run("SELECT id FROM path WHERE project = $project AND location = 'b'");
    struct Case {
        std::string damage;
        std::string problem;  ///< what is told of it
        std::string reads;    ///< what can be read; empty if that is an error
        bool isComeUpon;      ///< whether reading comes upon it
    };
    const Case cases[] = {
        {"node = '\\xff' WHERE location = 'b'", "has a node that cannot be read", "", true},
        {"location = 'x' WHERE location = 'b'", "what does not fit its number", "a(1) c(3)", true},
        {"type = '\\xff00' WHERE location = 'b'", "what does not fit its number", "a(1) c(3)", true},
        {"parent = '" + b + "' WHERE location = 'a'", "has no way to the root path", "c(3)", false},
        {"parent = id WHERE location = 'a'", "has no way to the root path", "c(3)", false},
        {"parent = gen_random_uuid() WHERE location = 'a'", "has no way to the root path", "c(3)", false},
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
        const CollectedDamage collected;
        for (int time = 0; time < 2; ++time) {
            if (each.reads.empty())
                expectNamed(messageOf<MetadataReadFailure>([&] { outline(*store); }), "is damaged");
            else
                EXPECT_EQ(outline(*store), each.reads);
            // Others are at work meanwhile.
            open()->addPath(path({u"c", number(time)}));
            open()->removePath(path({u"c", number(time)}));
        }
        const auto comeUpon = collected.take();
        ASSERT_EQ(comeUpon.size(), each.isComeUpon ? 1U : 0U);
        if (each.isComeUpon)
            expectNamed(comeUpon.front(), each.problem);
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

}  // namespace
