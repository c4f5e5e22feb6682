/// set, unset, add, remove and the counts of scan: what changes, what stays, and what is refused.
#include <nlohmann/json.hpp>

#include <set>
#include <thread>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/cli/StoreFixture.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using test::expectFailure;
using test::expectSuccess;
using test::readTree;
using test::run;
using testing::ElementsAre;
using testing::HasSubstr;

using ChangeCommandTest = test::StoreFixture;

INSTANTIATE_TEST_SUITE_P(Stores, ChangeCommandTest, testing::Values("fixedPath", "monolithic", "sqlite"),
                         test::nameOfStore);

TEST_P(ChangeCommandTest, attributesChangeAndTheRestOfTheNodeStays) {
    succeed("set", {"Folder:a|File:b", "--create", "--name", "Note", "Owner=Ann", "Text=x=y", "Empty="});
    const pm::MetadataPath path({{u"Folder", u"a"}, {u"File", u"b"}});
    {
        const auto store = openStore();
        const auto node = store->getNode(path);
        node->createChildNode(u"Child").put(u"Key", u"kept");
        store->setNode(path, *node);
    }
    succeed("set", {"Folder:a|File:b", "Owner=J\xc3\xbcrgen", "New=1"});
    EXPECT_THAT(content(), ElementsAre("Folder:a",
                                       "Folder:a|File:b Note Empty= New=1 Owner=J\xc3\xbcrgen Text=x=y "
                                       "(Child Key=kept)"));
    succeed("unset", {"Folder:a|File:b", "Empty", "New", "Text"});
    succeed("set", {"Folder:a", "K=V"});
    test::Surroundings inside;
    inside.folder = root;
    expectSuccess(run({"set", "/", "K=root", "L=root", "-q"}, inside), "");
    EXPECT_THAT(content(),
                ElementsAre("Folder:a Info K=V", "Folder:a|File:b Note Owner=J\xc3\xbcrgen (Child Key=kept)"));
    EXPECT_EQ(openStore()->getNode({})->get(u"L"), u"root");

    const auto before = readTree(root);
    expectFailure(run({"unset", root, "Folder:a|File:b", "Owner", "Text"}), 1, {"Folder:a|File:b", "\"Text\""});
    expectFailure(run({"unset", root, "Folder:x", "Owner"}), 3, {"Folder:x"});
    expectFailure(run({"set", root, "Folder:x", "K=V"}), 3, {"Folder:x", "--create"});
    expectFailure(run({"set", root, "Folder:a", "K=V", "--name", "Other"}), 3, {"\"Info\"", "\"Other\""});
    for (const std::string pair : {"=x", "1=x", "K=\xff", "K\xff=x", "K=\x01"})
        expectFailure(run({"set", root, "Folder:a", "Good=1", pair}), 2, {"in \""});
    expectFailure(run({"set", root, "Folder:a", "Good=1", "K=1", "Good=2"}), 2, {"\"Good\"", "twice"});
    expectFailure(run({"set", root, "Folder:a", "Good"}), 2, {"\"Good\"", "no \"=\""});
    EXPECT_EQ(readTree(root), before);
}

TEST_P(ChangeCommandTest, pathsAreAddedWhereTheyAreToBeAndRemovedTogetherOrNotAtAll) {
    for (const std::string path : {"T:b", "T:d", "T:b|T:below"})
        succeed("add", {path});
    succeed("add", {"T:a", "--before", "T:b"});
    succeed("add", {"T:c", "--after", "T:b"});
    EXPECT_THAT(content(), ElementsAre("T:a", "T:b", "T:c", "T:d", "T:b|T:below"));

    const auto before = readTree(root);
    expectFailure(run({"add", root, "T:a"}), 3, {"\"T:a\""});
    expectFailure(run({"add", root, "T:x", "--after", "T:b|T:below"}), 2, {"no sibling"});
    expectFailure(run({"remove", root, "T:a", "T:x"}), 3, {"\"T:x\""});
    expectFailure(run({"remove", root, "/"}), 2, {"--all"});
    for (const std::vector<std::string>& line :
         std::vector<std::vector<std::string>>{{"remove", root, "", "--all"},
                                               {"set", root, "", "k=v"},
                                               {"unset", root, "", "k"},
                                               {"add", root, ""},
                                               {"move", root, "T:a", ""},
                                               {"remove", root, "T:a", "", "--ignore-missing", "--node-only"}})
        expectFailure(run(line), 2, {"\"/\""});
    EXPECT_EQ(readTree(root), before);

    succeed("set", {"T:b", "K=V"});
    expectSuccess(run({"remove", "--node-only", root, "T:b", "T:b"}), "Removed 1 node\n");
    EXPECT_THAT(content(), ElementsAre("T:a", "T:b", "T:c", "T:d", "T:b|T:below"));
    expectFailure(run({"remove", "--node-only", root, "T:b"}), 1, {"\"T:b\""});
    expectSuccess(run({"remove", root, "T:b|T:below", "T:b", "T:x", "--ignore-missing"}), "Removed 2 paths\n");
    EXPECT_THAT(content(), ElementsAre("T:a", "T:c", "T:d"));
    succeed("set", {"/", "K=V"});
    expectSuccess(run({"remove", root, "/", "--all"}), "Removed 3 paths and 1 node\n");
    EXPECT_THAT(content(), ElementsAre());
    EXPECT_EQ(run({"get", root, "/", "K"}).status, 1);
    expectSuccess(run({"remove", root, "/", "--all"}), "Removed 0 paths\n");
}

TEST_P(ChangeCommandTest, aDryRunSaysWhatItWouldDoAndWritesNothing) {
    test::writeBytes(folder / "source/gone", "1");
    test::writeBytes(folder / "source/changed", "1");
    const auto counts = [&](const std::vector<std::string>& more) {
        std::vector<std::string> arguments{"scan", root, folder / "source", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return nlohmann::json::parse(run(arguments).out);
    };
    using Counts = nlohmann::json;
    const Counts first{{"added", 2},   {"updated", 0}, {"removed", 0}, {"moved", 0},
                       {"missing", 0}, {"files", 2},   {"folders", 0}, {"unreadable", 0}};
    EXPECT_EQ(counts({}), first);
    fs::remove(folder / "source/gone");
    test::writeBytes(folder / "source/changed", "22");
    test::writeBytes(folder / "source/new/file", "");

    const auto before = readTree(root);
    const Counts expected{{"added", 2},   {"updated", 1}, {"removed", 1}, {"moved", 0},
                          {"missing", 0}, {"files", 2},   {"folders", 1}, {"unreadable", 0}};
    EXPECT_EQ(counts({"--dry-run"}), expected);
    const std::vector<std::vector<std::string>> lines{{"set", "File:gone", "K=V"},
                                                      {"unset", "File:gone", "Kind"},
                                                      {"add", "File:x", "--before", "File:gone"},
                                                      {"remove", "File:gone"},
                                                      {"move", "File:gone", "File:x"}};
    for (std::vector<std::string> line : lines) {
        line.insert(line.end(), {"-C", root, "--dry-run"});
        const auto outcome = run(line);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr("ould "));
    }
    EXPECT_EQ(readTree(root), before);
    EXPECT_EQ(counts({}), expected);
    expectSuccess(run({"scan", root, folder / "source"}), "0 added, 0 updated, 0 removed; 2 files, 1 folder\n");
}

/// Four processes give and take attributes of one node. Each has its own keys, so all must come to pass.
TEST_P(ChangeCommandTest, processesThatChangeOneNodeLoseNothing) {
    constexpr int count = 25;
    std::vector<std::thread> processes;
    for (const char* const name : {"a", "b", "c", "d"}) {
        processes.emplace_back([this, name] {
            for (int i = 0; i < count; ++i) {
                const std::string key = name + std::to_string(i);
                succeed("set", {"--create", "T:shared", key + "=" + key});
                if (i % 3 == 0)
                    succeed("unset", {"T:shared", key});
            }
        });
    }
    for (std::thread& process : processes)
        process.join();
    std::set<std::string> expected;
    for (const char* const name : {"a", "b", "c", "d"}) {
        for (int i = 0; i < count; ++i) {
            if (i % 3 != 0)
                expected.insert(name + std::to_string(i));
        }
    }
    std::set<std::string> keys;
    const auto node = openStore()->getNode(pm::MetadataPathBuilder().add(u"T", u"shared").build());
    for (const std::u16string& key : node->getAttributeKeys())
        keys.insert(host::toUtf8(key));
    EXPECT_EQ(keys, expected);
}

}  // namespace
