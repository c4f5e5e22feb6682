// Servers that fail, restart or are full, and cut connections: the store has the old content or the new one, whole.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "project/metadata/MetadataErrors.hpp"
#include "tests/faults/Scenarios.hpp"
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

class PostgresqlFailureTest : public PostgresqlFixture {};

TEST_F(PostgresqlFailureTest, WhatTheServerAsksForIsTriedAgain) {
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

TEST_F(PostgresqlFailureTest, AFullDiskLeavesTheOldContent) {
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

TEST_F(PostgresqlFailureTest, NothingIsLostWhenTheServerRestarts) {
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

/// Whichever message is the last one that gets through, a change ends with the new content, or with an error and with
/// one of both; and it is never made twice.
TEST_F(PostgresqlFailureTest, ACutAtAnyMessageIsFoundOut) {
    CuttingProxy proxy(theServer().socket());
    PostgresqlServer::addOtherService("proxy", "host=" + proxy.host() + "\nuser=postgres\ndbname=postgres");
    const AllowedServers allowed("proxy");
    std::map<std::string, int> outcomes;
    for (const Scenario& scenario : allScenarios()) {
        // This store renames nothing by itself.
        if (!scenario.change || !scenario.prepare || scenario.isInterrupted || scenario.change == renameLeaf)
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
TEST_F(PostgresqlFailureTest, ACutWhileAProjectIsMadeLeavesAllOrNothing) {
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

}  // namespace
