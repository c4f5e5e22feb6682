/// Addresses of nodes in nodes, and edit: many changes as one.
#include <nlohmann/json.hpp>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/cli/StoreFixture.hpp"

namespace {

namespace pm = project::metadata;
using nlohmann::json;
using test::expectFailure;
using test::expectSuccess;
using test::Outcome;
using test::readTree;
using test::run;
using testing::ElementsAre;
using testing::HasSubstr;

class AddressTest : public test::StoreFixture {
protected:
    /// Runs `edit -` with `lines` as its input.
    Outcome edit(const std::string& lines, std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"edit", root, "-"});
        return run(options, test::withInput(lines));
    }

    std::string show(const std::string& address) const { return run({"show", root, address}).out; }
};

INSTANTIATE_TEST_SUITE_P(Stores, AddressTest, testing::Values("fixedPath", "monolithic", "sqlite"), test::nameOfStore);

TEST_P(AddressTest, childNodesAreMadeChangedAndRemovedWhereTheirAddressSays) {
    succeed("set", {"F:a#Review#Note", "--create", "By=me"});
    succeed("add", {"F:a#Review"});
    expectSuccess(run({"add", root, "F:a#Review", "--before", "F:a#Review[1]"}), "Added F:a#Review[1]\n");
    succeed("add", {"F:a#Part", "--after", "F:a#Review[1]"});
    EXPECT_THAT(content(), ElementsAre("F:a Info (Review) (Part) (Review (Note By=me)) (Review)"));

    succeed("set", {"F:a#Part", "Id=7", "Owner=Ann"});
    succeed("set", {R"([["F","a"],["Review",2],["Note"]])", "By=you"});
    succeed("unset", {"F:a#Part", "Owner"});
    EXPECT_EQ(show("F:a#Review[2]"), "F:a#Review[2]\nReview\n    Note\n        By = you\n");
    expectSuccess(run({"get", root, "F:a#Review[2]#Note", "By"}), "you\n");
    expectSuccess(run({"find", root, "--inside", "--name", "Review"}), "F:a#Review[1]\nF:a#Review[2]\nF:a#Review[3]\n");
    expectSuccess(run({"find", root, "F:a#Review[2]", "--attribute", "By"}), "F:a#Review[2]#Note\n");
    const json found = json::parse(run({"find", root, "--inside", "--attribute", "Id", "--json"}).out);
    EXPECT_EQ(found[0]["path"], "F:a#Part");
    EXPECT_EQ(found[0]["node"]["attributes"], json({{"Id", "7"}}));

    const auto before = readTree(root);
    expectFailure(run({"set", root, "F:a#Review", "K=V"}), 3, {"could be 3", "\"F:a#Review[1]\""});
    expectFailure(run({"set", root, "F:a#Review[4]", "K=V"}), 3, {"no child node \"F:a#Review[4]\""});
    expectFailure(run({"set", root, "F:a#Review[5]", "K=V", "--create"}), 3, {"\"F:a#Review[5]\""});
    expectFailure(run({"show", root, "F:a#Part#X"}), 3, {"\"F:a#Part#X\"", "\"F:a#Part\""});
    expectFailure(run({"remove", root, "F:a#Part", "F:a#Gone"}), 3, {"\"F:a#Gone\""});
    expectFailure(run({"add", root, "F:a#Review[2]"}), 3, {"there are 3"});
    expectFailure(run({"add", root, "F:a#X", "--before", "F:a#Review[1]#Note"}), 2, {"no sibling"});
    for (const std::string text : {"F:a#", "F:a##X", "F:a#X[0]", "F:a#X[1", "F:a#X[1]y", "F:a#X[]", "#X"})
        expectFailure(run({"show", root, text}), 2, {'"' + text + '"'});
    expectFailure(run({"move", root, "F:a#Part", "F:b"}), 2, {"leads into a node"});
    EXPECT_EQ(readTree(root), before);

    // The numbers are those from before the command.
    succeed("remove", {"F:a#Review[1]", "F:a#Review[2]", "F:a#Review[2]#Note"});
    EXPECT_THAT(content(), ElementsAre("F:a Info (Part Id=7) (Review)"));
}

TEST_P(AddressTest, whatIsPrintedOfNamesThatLookLikeAddressesNamesTheSame) {
    const std::vector<std::u16string> texts{u"#", u"C#", u"a#b[2]", u"[1]", u"/#x", u"\\#", u"a|b#c:d", u"\u202e#\n"};
    const auto store = openStore();
    std::string found;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        pm::MetadataNodeSpecification node;
        node.put(u"Number", host::fromUtf8(std::to_string(i)));
        store->setNode(pm::MetadataPath({{texts[i], texts[i]}}), node);
    }
    const json listed = json::parse(run({"tree", root, "--json"}).out);
    ASSERT_EQ(listed.size(), texts.size() + 1);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string path = listed[i + 1]["path"];
        EXPECT_EQ(listed[i + 1]["location"], host::toUtf8(texts[i]));
        expectSuccess(run({"get", root, "--", path, "Number"}), std::to_string(i) + '\n');
        expectSuccess(run({"set", root, path + "#ns:Part[1]", "--create", "K=V", "-q"}), "");
        expectSuccess(run({"get", root, "--", path + "#ns:Part", "K"}), "V\n");
        found += path + "#ns:Part\n";
    }
    expectSuccess(run({"find", root, "--inside", "--name", "ns:Part"}), found);
    succeed("set", {"/#Top", "--create", "K=V"});
    expectSuccess(run({"find", root, "--inside", "--name", "Top"}), "/#Top\n");
}

TEST_P(AddressTest, editDoesAllOfItsCommandsOrNone) {
    succeed("set", {"F:a", "--create", "K=1"});
    succeed("set", {"F:a|F:below", "--create", "K=2"});
    const std::string commands = R"(# Each line sees what those before it have done.
set F:new --create Text="two\nlines \"\u00fc\"" 'Blank=a b' Path=a\|b
set F:new#Review[1] --create By=me

move F:new F:z
copy F:a F:z|F:c
set F:z|F:c|F:below K=3
remove F:a
add F:a
add F:y --before=F:z
remove --node-only F:z|F:c
unset F:z Path
)";
    const auto untouched = readTree(root);
    expectSuccess(edit(commands, {"--dry-run"}), "10 commands, not done: 4 added, 1 updated, 1 removed\n");
    expectFailure(edit(commands + "set F:z K\n"), 2, {"Line 13 of the standard input", "nothing is changed", "\"K\""});
    expectFailure(edit("add F:z K=1\n"), 2, {"\"K=1\" is too much", "add PATH [--before"});
    expectFailure(edit("set F:z\n"), 2, {"Something is missing", "PATH KEY=VALUE"});
    expectFailure(edit("add --create F:z\n"), 2, {"no \"--create\" with \"add\""});
    EXPECT_EQ(readTree(root), untouched);
    EXPECT_EQ(json::parse(edit(commands, {"--json"}).out), json({{"added", 4}, {"updated", 1}, {"removed", 1}}));
    const std::vector<std::string> expected{"F:a", "F:y",
                                            "F:z Info Blank=a b Text=two\nlines \"\u00fc\" (Review By=me)", "F:z|F:c",
                                            "F:z|F:c|F:below Info K=3"};
    auto stored = content();
    std::sort(stored.begin(), stored.end());
    EXPECT_EQ(stored, expected);
    const json tree = json::parse(run({"tree", root, "--json", "--depth", "1"}).out);
    EXPECT_EQ(tree[1]["path"], "F:y");
    EXPECT_EQ(tree[3]["path"], "F:a");

    const auto before = readTree(root);
    for (const auto& [line, status, part] : std::vector<std::tuple<std::string, int, std::string>>{
             {"sett F:a K=V", 2, "\"sett\" is none of"},
             {"set F:a", 2, "KEY=VALUE"},
             {"set --what F:a K=V", 2, "--create"},
             {"add F:n --before F:y --before F:z", 2, "--before is there twice"},
             {std::string("set F:a K=1") + '\0' + "set F:a L=2", 2, "K=1\\u0000set"},
             {"set F:a 'K=V", 2, "no second one"},
             {R"(set F:a "K=\q")", 2, "after a backslash"},
             {"set F:b K=V", 3, "\"F:b\""},
             {"unset F:y K", 3, "\"K\""},
             {"remove /", 2, "--all"},
             {"remove F:z|F:c\nadd F:z|F:c\nremove F:z|F:c|F:below", 3, "\"F:z|F:c|F:below\""},
             {"move F:z F:z|F:y", 2, "into itself"},
             {"copy F:y F:a", 3, "already"}}) {
        expectFailure(edit("set F:a Good=1\n" + line), status, {"Line ", part});
    }
    EXPECT_EQ(readTree(root), before);
    expectSuccess(edit(std::string("set F:a 'K=1\n2'") + '\0' + "set F:y K=3", {"-0", "-q"}), "");
    expectSuccess(run({"get", root, "F:a", "K"}), "1\n2\n");
    EXPECT_THAT(edit("set F:y K=4\nremove --ignore-missing F:none\nremove F:y#No --ignore-missing\n"
                     "remove --node-only --ignore-missing F:z|F:c\nadd F:y#Yes\nremove --ignore-missing F:y#Yes\n"
                     "remove --node-only --ignore-missing F:y\nremove --node-only --ignore-missing F:y\n")
                    .out,
                HasSubstr(": 0 added, 1 updated, 0 removed\n"));
    EXPECT_EQ(run({"get", root, "F:y", "K"}).status, 1);
    // The root path stays when all is removed, without its node, and has what comes later.
    for (const std::string line : {"unset / K", "move F:a F:b", "set F:a K=1"}) {
        const Outcome outcome = edit("set / K=1\nremove --all /\n" + line);
        expectFailure(outcome, 3, {"Line 3"});
        EXPECT_THAT(outcome.err, testing::Not(testing::AnyOf(HasSubstr("did you mean"), HasSubstr("vector"))));
    }
    EXPECT_THAT(edit("remove --all /\nset / New=1\nset --create F:n|F:m K=1\n", {"--dry-run"}).out,
                HasSubstr(": 2 added, 1 updated, "));
    // A new path stays when its node goes again.
    EXPECT_THAT(edit("set --create F:n|F:m K=1\nremove --node-only F:n|F:m\n").out, HasSubstr(": 2 added"));
    expectSuccess(run({"find", root, "F:n"}), "F:n\nF:n|F:m\n");
}

TEST_P(AddressTest, valuesComeFromFilesAndTheStandardInput) {
    const std::string value = "line\n\ttab " + std::string(300000, 'x') + "\u00fc\n";
    test::writeBytes(folder / "value", value);
    succeed("set", {"F:a", "--create", "File@" + (folder / "value").native(), "Short=@x"});
    expectSuccess(run({"set", root, "F:a", "Input@-", "-q"}, test::withInput(value)), "");
    expectSuccess(run({"get", root, "F:a", "File", "-n"}), value);
    expectSuccess(run({"get", root, "F:a", "Input", "Short", "None", "--default", "none"}), value + "\n@x\nnone\n");
    expectSuccess(run({"get", root, "F:a", "Short", "Short", "-0"}), std::string("@x\0@x\0", 6));
    EXPECT_EQ(json::parse(run({"get", root, "F:a", "Short", "None", "--json", "--default", "x"}).out),
              json({{"Short", "@x"}, {"None", "x"}}));
    expectFailure(run({"get", root, "F:a", "Short", "None"}), 1, {"\"None\""});
    test::writeBytes(folder / "value", "\xff");
    expectFailure(run({"set", root, "F:a", "K@" + (folder / "value").native()}), 2, {"not valid UTF-8"});
    expectFailure(run({"set", root, "F:a", "K@" + (folder / "none").native()}), 3, {"No such file"});
    expectFailure(run({"set", root, "F:a", "K@-", "L@-"}, test::withInput("x")), 2, {"only once"});
}

}  // namespace
