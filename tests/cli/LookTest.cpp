/// tree, show, get, find and stat: looking at a project.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using nlohmann::json;
using test::expectFailure;
using test::expectSuccess;
using test::Outcome;
using test::run;
using testing::AllOf;
using testing::HasSubstr;

/// A project with a node that holds children, one with a value that is not easy to print, and a branch.
class LookTest : public test::ProjectFixture {
protected:
    LookTest() {
        init();
        const auto store = pm::getMetadataManagerFor(test::toPath(root));
        pm::MetadataNodeSpecification node(u"Source");
        node.put(u"Owner", u"Jane Doe");
        node.put(u"Id", u"7");
        node.createChildNode(u"Note").put(u"Text", oddValue);
        store->setNode(pm::MetadataPath({{u"Folder", u"src"}, {u"File", u"main.c"}}), node);
        pm::MetadataNodeSpecification oddNode;
        oddNode.put(u"Odd", oddValue);
        oddNode.put(u"None", u"");
        store->setNode(pm::MetadataPath({{u"Folder", u"src"}, {u"File", u"Grün.c"}}), oddNode);
        store->addPath(pm::MetadataPathBuilder().add(u"Label", u"x").build());
    }

    const std::u16string oddValue = u"tab\t\u202e\n\"\\n ü";
    const std::string source = "Folder:src|File:main.c";
    const std::string odd = "Folder:src|File:Grün.c";
};

TEST_F(LookTest, pathsThatArePrintedNameTheSamePathsAgain) {
    const std::vector<pm::PathElement> elements{
        {u"[[\"a\",\"b\"]]", u"[x"}, {u"-rf", u"--help"},          {u"a:b|c", u"d:e|f"},  {u"", u"a\\|\\\\"},
        {u"/", u"\u202e\n\x1b[2J"},  {u"bytes", {0xDCFF, 0xD800}}, {u"\U0001f527", u"/"}, {u"Folder", u"b|Folder:c"}};
    const auto store = pm::getMetadataManagerFor(test::toPath(root));
    store->removePath({});
    pm::MetadataPathBuilder builder;
    for (const pm::PathElement& element : elements) {
        builder.add(element.getType(), element.getLocation());
        pm::MetadataNodeSpecification node;
        node.put(u"Depth", host::fromUtf8(std::to_string(builder.build().getPath().size())));
        store->setNode(builder.build(), node);
    }
    const json listed = json::parse(run({"tree", root, "--json"}).out);
    ASSERT_EQ(listed.size(), elements.size() + 1);
    std::string found;
    std::string drawn = root.native() + '\n';
    std::size_t parentLength = 0;
    for (std::size_t depth = 1; depth <= elements.size(); ++depth) {
        const std::string path = listed[depth]["path"];
        expectSuccess(run({"get", root, "--", path, "Depth"}), std::to_string(depth) + '\n');
        found += path + '\n';
        drawn += std::string(4 * depth - 4, ' ') + "└── " + path.substr(parentLength) + '\n';
        parentLength = path.size() + 1;
    }
    expectSuccess(run({"find", root}), found);
    expectSuccess(run({"tree", root}), drawn);
}

TEST_F(LookTest, aSurrogateAloneIsRefusedInJsonAndNamed) {
    expectFailure(run({"show", root, R"([["T","\ud800"]])"}), 2, {"surrogate"});
}

TEST_F(LookTest, treeStartsAndEndsWhereItIsTold) {
    expectSuccess(run({"tree", root, "--depth", "1"}), root.native() + "\n├── Folder:src\n└── Label:x\n");
    expectSuccess(run({"tree", root, "Folder:src", "--attributes"}),
                  "Folder:src\n├── File:main.c  Source Id=7 Owner=\"Jane Doe\"\n"
                  "└── File:Grün.c  Info None=\"\" Odd=\"tab\\t\\u202E\\n\\\"\\\\n ü\"\n");
    const json list = json::parse(run({"tree", root, "--json", "--attributes", "--depth", "2"}).out);
    EXPECT_EQ(list.size(), 5U);
    EXPECT_EQ(list[0], json::parse(R"({"path": "/", "type": null, "location": null, "node": null, "depth": 0})"));
    EXPECT_EQ(list[2]["node"]["attributes"], json({{"Id", "7"}, {"Owner", "Jane Doe"}}));
    expectFailure(run({"tree", root, source + "|x:y|z:"}), 3, {"\"" + source + "|x:y|z:\"", "is \"" + source + '"'});
    expectFailure(run({"tree", root, "--depth", "-1"}), 2, {"--depth"});
}

TEST_F(LookTest, showPrintsAllThatANodeHolds) {
    expectSuccess(run({"show", root, source}), source + R"(
Source
    Id    = 7
    Owner = Jane Doe
    Note
        Text = tab\t\u202E\n"\n ü
0 paths directly below
)");
    expectSuccess(run({"show", "-C", root, "Label:x"}), "Label:x\nNo node, only a branch\n0 paths directly below\n");
    const json shown = json::parse(run({"show", root, R"([["Folder","src"],["File","main.c"]])", "--json"}).out);
    EXPECT_EQ(shown["path"], source);
    EXPECT_EQ(shown["node"]["children"][0]["attributes"]["Text"], host::toUtf8(oddValue));
    expectFailure(run({"show", root, "Folder:src|File:none"}), 3, {"Folder:src|File:none", "is \"Folder:src\""});
}

TEST_F(LookTest, getPrintsAValueAsItIs) {
    expectSuccess(run({"get", root, odd, "Odd"}), host::toUtf8(oddValue) + '\n');
    EXPECT_EQ(json::parse(run({"get", root, odd, "Odd", "--json"}).out), host::toUtf8(oddValue));
    expectSuccess(run({"get", root, odd, "None"}), "\n");
    expectFailure(run({"get", root, odd, "Id"}), 1, {'"' + odd + '"', "\"Id\""});
    expectFailure(run({"get", root, "Label:x", "Id"}), 1, {"\"Label:x\"", "no node"});
    expectFailure(run({"get", root, "Label:y", "Id"}), 3, {"\"Label:y\"", "\"/\""});

    // On a terminal it must not act.
    const int screen = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(screen >= 0 && grantpt(screen) == 0 && unlockpt(screen) == 0);
    const int terminal = open(ptsname(screen), O_RDWR | O_NOCTTY);
    test::Surroundings surroundings;
    surroundings.prepare = [terminal] { dup2(terminal, STDOUT_FILENO); };
    EXPECT_EQ(run({"get", root, odd, "Odd"}, surroundings).status, 0);
    std::array<char, 256> text{};
    EXPECT_GT(read(screen, text.data(), text.size() - 1), 0);
    EXPECT_STREQ(text.data(), "tab\\t\\u202E\\n\"\\n ü\r\n");
    close(terminal), close(screen);
}

TEST_F(LookTest, findPrintsThePathsThatHaveEverythingAskedFor) {
    const std::string both = source + '\n' + odd + '\n';
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{}, "Folder:src\n" + both + "Label:x\n"},
        {{"Folder:src", "--type", "F*"}, "Folder:src\n" + both},
        {{"--type", "F*", "--location", "*.[c-d]"}, both},
        {{"--location", "Gr?n.c"}, odd + '\n'},
        {{"--location", "gr[ä-ÿ]*", "-i"}, odd + '\n'},
        {{"--location", "main\\.c"}, source + '\n'},
        {{"--location", "main"}, ""},
        {{"--attribute", "Id=[0-9]", "--attribute", "Owner=* Doe"}, source + '\n'},
        {{"--attribute", "Id", "--attribute", "Odd"}, ""},
        {{"--attribute", "Odd=tab?\u202e*\n*ü"}, odd + '\n'},
        {{"--name", "Source"}, source + '\n'},
        {{"--branches"}, "Folder:src\nLabel:x\n"},
        {{"--not", "--branches"}, both},
        {{"--not", "--attribute", "Id", "--type", "F*"}, "Folder:src\n" + odd + '\n'},
        {{"--type", "Label", "--or", "--type", "File", "--not", "--name", "Info"}, source + "\nLabel:x\n"},
        {{"--branches", "--type", "L*", "--or", "--name", "Source"}, source + "\nLabel:x\n"},
        {{"--attribute", "Id<7.5"}, source + '\n'},
        {{"--attribute", "Id<7"}, ""},
        {{"--attribute", "Id>=0.7e1", "--attribute", "Id<=7"}, source + '\n'},
        {{"--attribute", "Owner>1"}, ""},
        {{"--attribute", "Id>2026-11-21"}, ""},
        {{"--regex", "--location", "^[gm]..?n\\."}, both.substr(0, source.size() + 1)},
        {{"--regex", "-i", "--location", "^GRÜN"}, odd + '\n'},
        {{"--regex", "--attribute", "Odd=\u202e\n.*ü$"}, odd + '\n'}};
    for (const auto& [options, expected] : cases) {
        std::vector<std::string> line{"find", root};
        line.insert(line.end(), options.begin(), options.end());
        const Outcome outcome = run(line);
        EXPECT_EQ(outcome.out, expected) << testing::PrintToString(options);
        EXPECT_EQ(outcome.status, expected.empty() ? 1 : 0) << outcome.err;
    }
    EXPECT_EQ(json::parse(run({"find", root, "--attribute", "Id", "--json"}).out).at(0)["node"]["name"], "Source");
    EXPECT_EQ(json::parse(run({"find", root, "--type", "none", "--json"}).out), json::array());
    expectFailure(run({"find", root, "--branches", "--name", "x"}), 2, {"--branches", "--name"});
}

TEST_F(LookTest, findComparesNumbersDigitByDigit) {
    // In ascending order; those of one line are equal.
    const std::vector<std::vector<std::string>> numbers{{"-1e400"},
                                                        {"-99999999999999999999"},
                                                        {"-99999999999999999998.5"},
                                                        {"-0.001", "-1E-3"},
                                                        {"0", "-0.0", "0e9"},
                                                        {"1e-400"},
                                                        {".5", "0.50"},
                                                        {"7", "7.", "0.7e1", "007"},
                                                        {"99999999999999999998"},
                                                        {"99999999999999999999", "9.9999999999999999999e+19"}};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        for (std::size_t j = 0; j < numbers[i].size(); ++j) {
            ASSERT_EQ(run({"set", root, "N:" + std::to_string(i) + '.' + std::to_string(j), "--create", "-q",
                           "V=" + numbers[i][j]})
                          .status,
                      0);
        }
    }
    for (const std::string other : {"1e", "+1", "1.2.3", "0x1", "inf", "1 ", "."})
        ASSERT_EQ(run({"set", root, "Other:" + other, "--create", "-q", "V=" + other}).status, 0);
    const auto find = [&](const std::string& condition) {
        return run({"find", root, "--attribute", "V" + condition}).out;
    };
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        std::string less, same, greater;
        for (std::size_t k = 0; k < numbers.size(); ++k) {
            for (std::size_t j = 0; j < numbers[k].size(); ++j)
                (k < i ? less : k > i ? greater : same) += "N:" + std::to_string(k) + '.' + std::to_string(j) + '\n';
        }
        EXPECT_EQ(find('<' + numbers[i].back()), less) << i;
        EXPECT_EQ(find("<=" + numbers[i].front()), less + same) << i;
        EXPECT_EQ(find('>' + numbers[i].front()), greater) << i;
        EXPECT_EQ(find(">=" + numbers[i].back()), same + greater) << i;
    }
}

TEST_F(LookTest, findComparesMomentsAndRefusesWhatItCannotTell) {
    const std::vector<std::string> moments{"1969-12-31T23:59:59.25Z",
                                           "2000-02-29",
                                           "2026-11-21T10:00:00+02:00",
                                           "2026-11-21 08:00:00.5Z",
                                           "2026-11-21T08:00",
                                           "not-a-date",
                                           "2026-13-01",
                                           "2026-11-21T08:00:00.5Zx",
                                           "2026-02-29"};
    for (std::size_t i = 0; i < moments.size(); ++i)
        ASSERT_EQ(run({"set", root, "M:" + std::to_string(i), "--create", "At=" + moments[i], "-q"}).status, 0);
    const std::vector<std::pair<std::string, std::string>> cases{
        {"<1969-12-31T23:59:59.3", "0"},         {"<1969-12-31T23:59:59.25", ""},   {"<=2000-03-01", "01"},
        {">2000-02-28T23:59:59Z", "1234"},       {">=2026-11-21T08:00:00Z", "234"}, {">2026-11-21T08:00:00Z", "3"},
        {"<2026-11-21T03:00:00.4-05:00", "0124"}};
    for (const auto& [condition, expected] : cases) {
        std::string found;
        for (const char mark : expected)
            found += std::string("M:") + mark + '\n';
        EXPECT_EQ(run({"find", root, "--attribute", "At" + condition}).out, found) << condition;
    }
    for (const auto& [options, part] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--attribute", "At<soon"}, "neither a number nor a date"},
             {{"--attribute", "At<2023-02-31"}, "neither a number nor a date"},
             {{"--attribute", "At<+1"}, "neither a number nor a date"},
             {{"--regex", "--location", "(("}, "no regular expression"},
             {{"--not"}, "After --not"},
             {{"--or", "--type", "x"}, "Before --or"},
             {{"--type", "x", "--or", "--or", "--type", "x"}, "Before --or"}}) {
        std::vector<std::string> line{"find", root};
        line.insert(line.end(), options.begin(), options.end());
        expectFailure(run(line), 2, {part});
    }
    // What would take for ever by trying is an error, and costs neither the stack nor the day.
    ASSERT_EQ(run({"set", root, "M:0", "-q", "Long=" + std::string(100000, 'a')}).status, 0);
    expectFailure(run({"find", root, "--regex", "--attribute", "Long=^(a|aa)+$(?<!a)"}), 3, {"takes too long"});
}

TEST_F(LookTest, statCountsPathsNodesAndFiles) {
    const std::size_t value = host::toUtf8(oddValue).size();
    const std::size_t large = std::string("SourceIdOwner7Jane DoeNoteText").size() + value;
    const std::size_t text = large + std::string("InfoNoneOdd").size() + value;
    std::size_t bytes = 0;
    for (const auto& file : test::readTree(coreFile.parent_path()))
        bytes += file.second.size();
    const json counts = json::parse(run({"stat", root, "--json"}).out);
    EXPECT_EQ(counts["types"][0]["textBytes"], text);
    EXPECT_EQ(counts["largest"][0]["path"], source);
    EXPECT_EQ(counts["largest"][0]["textBytes"], large);
    EXPECT_EQ(counts["fileBytes"], bytes);
    EXPECT_THAT(run({"stat", root}).out, HasSubstr("Branches    2\nDepth       2\nOn disk     "));
}

TEST_F(LookTest, goesOnWhereMetadataIsDamaged) {
    const fs::path file = coreFile.parent_path() / "Folder=src/File=main.c.xml";
    test::writeBytes(file, "<Path");
    const std::vector<std::pair<std::vector<std::string>, std::string>> looks{
        {{"tree", root, "--attributes"}, "main.c  (unreadable)\n"},
        {{"tree", root, "--attributes", "--json"}, "\"unreadable\":true}"},
        {{"find", root, "--attribute", "Odd"}, "Folder:src|File:Grün.c\n"},
        {{"stat", root}, "\nUnreadable  1\n"}};
    for (const auto& [line, part] : looks) {
        const Outcome outcome = run(line);
        EXPECT_EQ(outcome.status, 1) << line[0];
        EXPECT_THAT(outcome.out, HasSubstr(part));
        EXPECT_THAT(outcome.err, AllOf(HasSubstr(file), HasSubstr("project-metadata: 1 path could not be read")));
    }
    EXPECT_THAT(run({"find", root, "--branches"}).out, "Folder:src\nLabel:x\n");
    EXPECT_THAT(run({"get", root, source, "Id"}).err, HasSubstr("Cannot read metadata from \"" + file.native()));
    EXPECT_EQ(run({"show", root, source}).status, 3);
}

}  // namespace
