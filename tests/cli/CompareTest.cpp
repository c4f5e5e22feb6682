/// diff and merge: by path and attribute, on projects and on single files.
#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectFailure;
using test::expectSuccess;
using test::Outcome;
using test::run;
using testing::HasSubstr;

class CompareTest : public test::ProjectFixture {
protected:
    /// An exported file with `content`.
    std::string file(const std::string& name, const std::string& content) const {
        const fs::path path = folder / name;
        test::writeBytes(path, "<Project MetadataType=\"monolithic\">" + content + "</Project>\n");
        return path;
    }

    /// A project named `name` with `content`.
    std::string project(const std::string& name, const std::string& content, const std::string& store) const {
        const fs::path path = folder / name;
        fs::create_directories(path);
        const Outcome outcome = run({"import", file(name + ".xml", content), path, "--store", store});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return path;
    }
};

/// A path of type "T" at `location`, with a node of the attributes `attributes`, and `children` below.
std::string path(const std::string& location, const std::string& attributes, const std::string& children = "") {
    return "<Path Location=\"" + location + "\" Type=\"T\"><Node><Info" + (attributes.empty() ? "" : " ") + attributes +
           "/></Node>" + children + "</Path>";
}

/// What is between the tags of the root of `file`, on one line.
std::string contentOf(const fs::path& file) {
    std::istringstream lines(test::readBytes(file));
    std::string content;
    for (std::string line; std::getline(lines, line);)
        content += line.substr(std::min(line.find_first_not_of(' '), line.size()));
    const std::string begin = "<Project MetadataType=\"monolithic\">";
    const std::size_t start = content.find(begin) + begin.size();
    return content.substr(start, content.rfind("</Project>") - start);
}

TEST_F(CompareTest, listsDifferencesByPathAndAttribute) {
    const std::string before = path("a", "k=\"1\" x=\"&#10;&quot;\\n\"") + path("b", "") + path("c", "") +
                               path("d", "") +
                               "<Path Location=\"e\" Type=\"T\"><Node><Info><I n=\"1\"/><I n=\"2\"/></Info></Node>"
                               "</Path>";
    const std::string after =
        path("a", "k=\"2\" y=\"\"") + path("d", "") + path("new", "k=\"1\"") + path("b", "") +
        "<Path Location=\"e\" Type=\"T\"><Node><Info><J/><I n=\"1\"/><I n=\"2\" m=\"3\"/></Info></Node>"
        "</Path>";
    const std::string expected =
        "~ T:a\n    ~ node Info\n        - k=\"1\"\n        + k=\"2\"\n        - x=\"\\n\\\"\\\\n\"\n"
        "        + y=\"\"\n"
        "~ T:d  (moved among its siblings)\n"
        "+ T:new\n    + node Info\n        + k=\"1\"\n"
        "- T:c\n    - node Info\n"
        "~ T:e\n    ~ node Info\n        + node J\n        ~ node I[2]\n            + m=\"3\"\n";
    const Outcome files = run({"diff", file("a.xml", before), file("b.xml", after)});
    EXPECT_EQ(files.status, 1);
    EXPECT_EQ(files.out, expected);

    // The same in stores of two kinds, and against a file.
    const std::string a = project("a", before, "fixedPath");
    const std::string b = project("b", after, "monolithic");
    EXPECT_EQ(run({"diff", a, b}).out, expected);
    EXPECT_EQ(run({"diff", a, file("b.xml", after)}).out, expected);
    expectSuccess(run({"diff", a, file("a.xml", before)}), "");
    EXPECT_EQ(run({"diff", "-q", a, b}).status, 1);
    EXPECT_EQ(run({"diff", "-q", a, b}).out, "");
    EXPECT_THAT(run({"diff", "--color", "always", a, b}).out, HasSubstr("\x1b[31m- T:c\x1b[0m"));

    const auto json = nlohmann::json::parse(run({"diff", "--json", a, b}).out);
    ASSERT_EQ(json.size(), 5U);
    EXPECT_EQ(json[0]["node"]["attributes"][0], nlohmann::json({{"key", "k"}, {"before", "1"}, {"after", "2"}}));
    EXPECT_EQ(json[1]["moved"], true);
    EXPECT_EQ(json[3]["change"], "removed");

    EXPECT_EQ(run({"diff", "--name-only", a, b}).out, "T:a\nT:d\nT:new\nT:c\nT:e\n");
    EXPECT_EQ(run({"diff", "--stat", a, b}).out, "5 paths: 1 added, 1 removed, 3 changed, of which 1 moved\n");
    EXPECT_EQ(nlohmann::json::parse(run({"diff", "--stat", "--json", a, b, "T:d"}).out),
              nlohmann::json({{"added", 0}, {"removed", 0}, {"changed", 1}, {"moved", 1}}));
    EXPECT_EQ(run({"diff", a, b, "T:c"}).out, "- T:c\n    - node Info\n");
    expectSuccess(run({"diff", a, b, "T:b"}), "");
    expectFailure(run({"diff", a, b, "T:none"}), 3, {"T:none", "on either side"});
}

TEST_F(CompareTest, refusesWhatItCannotCompare) {
    test::writeBytes(folder / "bad.xml", "<Project MetadataType=\"x\">\n<Info/></Project>");
    test::writeBytes(folder / "node.xml", "<Info/>");
    expectFailure(run({"diff", folder / "absent", folder / "node.xml"}), 3, {folder / "absent"});
    expectFailure(run({"diff", folder / "bad.xml", folder / "node.xml"}), 3, {folder / "bad.xml", "<Info>"});
    expectFailure(run({"merge", folder / "node.xml", folder / "node.xml", file("a.xml", "")}), 3, {"one form"});

    for (const std::string content : {"<a>text</a>", "<a><!--c--></a>", "<?p?><a/>", "<!DOCTYPE a><a/>"}) {
        test::writeBytes(folder / "more.xml", content);
        expectFailure(run({"merge", folder / "node.xml", folder / "more.xml", folder / "node.xml"}), 3,
                      {folder / "more.xml", "get lost"});
        EXPECT_EQ(test::readBytes(folder / "more.xml"), content);
    }

    // The line is where it begins, however much follows, or none.
    for (const auto& [content, what] : std::vector<std::pair<std::string, std::string>>{
             {"<!--c-->\n<a>\n<b/>\n\n</a>\n", "a comment in line 1"},
             {"<a>\n<!--c\n-->\n\n</a>\n", "a comment in line 2"},
             {"<a>\n<b/>\n<?p q?>\n\n</a>\n", "a processing instruction in line 3"},
             {"<a>\n\n<b/>text\n\n<b/>\n</a>", "text in line 3"},
             {"<a>\n\ntext\n<b/>\n</a>", "text in line 3"},
             {"<a>" + std::string(70000, '\n') + "<!--c-->\n\n</a>\n", "a comment"},
             {"\n<!DOCTYPE a>\n\n<a>\n</a>", "a document type"},
             {"<a>\n<b/><![CDATA[c]]>\n</a>", "a CDATA section"}}) {
        test::writeBytes(folder / "more.xml", content);
        expectFailure(run({"diff", folder / "more.xml", folder / "node.xml"}), 3, {"it holds " + what + ", which"});
    }

    const std::string sound = project("sound", path("a", "k=\"1\"") + path("b", ""), "fixedPath");
    const fs::path files = fs::path(sound) / "resources/project";
    expectFailure(run({"diff", files / "T=a.xml", sound}), 3, {"\"T:a\""});
    // A core file says all of a project only where it holds all.
    expectFailure(run({"merge", sound, sound, files / "Project.xml"}), 3, {"one form"});
    test::writeBytes(folder / "empty.xml", "");
    expectFailure(run({"merge", sound, folder / "empty.xml", sound}), 3, {"one form"});
    EXPECT_EQ(test::readBytes(folder / "empty.xml"), "");

    const std::string damaged = project("damaged", path("a", "k=\"1\""), "fixedPath");
    test::writeBytes(fs::path(damaged) / "resources/project/T=a.xml", "<Path");
    const Outcome outcome = run({"diff", damaged, file("a.xml", "")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.err, HasSubstr("would pass for removed; see \"project-metadata check\""));
}

struct MergeCase {
    std::string what, base, ours, theirs, merged;
    int conflicts = 0;
};

TEST_F(CompareTest, mergesByPathAndAttribute) {
    const std::string a = path("a", "k=\"1\"");
    const std::string b = path("b", "k=\"1\"");
    const std::string c = path("c", "k=\"1\"");
    const auto marked = [](const std::string& name, const std::string& attributes, const std::string& mark) {
        return "<Path Location=\"" + name + "\" Type=\"T\"><Node><Info " + attributes + "><Conflict " + mark +
               "/></Info></Node></Path>";
    };
    const auto lists = [](const std::string& items) {
        return "<Path Location=\"a\" Type=\"T\"><Node><Info>" + items + "</Info></Node></Path>";
    };
    const MergeCase cases[] = {
        {"attributes of one node", path("a", "k=\"1\" l=\"1\" m=\"1\""), path("a", "k=\"2\" l=\"1\" m=\"1\""),
         path("a", "k=\"1\" m=\"1\" n=\"1\""), path("a", "k=\"2\" m=\"1\" n=\"1\"")},
        {"both alike", a + b, path("a", "k=\"2\"") + c, path("a", "k=\"2\"") + c, path("a", "k=\"2\"") + c},
        {"additions and removals", a + b, a + path("x", "") + b, b + c, path("x", "") + b + c},
        {"one reorders, the other adds", a + b + c, c + b + a, a + path("x", "") + b + c, c + b + a + path("x", "")},
        {"additions at one place", a, a + b, a + c, a + b + c},
        {"same attribute", a, path("a", "k=\"2\""), path("a", "k=\"3\""),
         marked("a", "k=\"2\"", R"(Base="1" Key="k" Ours="2" Theirs="3" What="attribute")"), 1},
        {"attribute changed and removed", a, path("a", ""), path("a", "k=\"3\""),
         marked("a", "k=\"3\"", R"(Base="1" Key="k" Theirs="3" What="attribute")"), 1},
        {"path changed and removed", a + b, b, path("a", "k=\"2\"") + b,
         marked("a", "k=\"2\"", R"(RemovedBy="ours" What="removed")") + b, 1},
        {"both added a path", "", a, path("a", "k=\"2\" l=\"1\""),
         marked("a", "k=\"1\" l=\"1\"", R"(Key="k" Ours="1" Theirs="2" What="attribute")"), 1},
        {"child nodes", lists("<I n=\"1\"/><I n=\"2\"/><I n=\"3\"/>"),
         lists("<I n=\"1\"/><I n=\"2\" o=\"\"/><I n=\"3\"/>"), lists("<I n=\"0\"/><I n=\"1\"/><I n=\"2\"/>"),
         lists("<I n=\"0\"/><I n=\"1\"/><I n=\"2\" o=\"\"/>")},
    };
    for (const MergeCase& merge : cases) {
        const std::string ours = file("ours.xml", merge.ours);
        const std::string theirs = file("theirs.xml", merge.theirs);
        const Outcome outcome = run({"merge", "--json", file("base.xml", merge.base), ours, theirs});
        EXPECT_EQ(outcome.status, merge.conflicts == 0 ? 0 : 1) << merge.what << outcome.err;
        EXPECT_EQ(nlohmann::json::parse(outcome.out).size(), std::size_t(merge.conflicts)) << merge.what;
        EXPECT_EQ(contentOf(ours), merge.merged) << merge.what;
    }
}

TEST_F(CompareTest, mergesProjectsOfDifferentStores) {
    const std::string base = project("base", path("a", "k=\"1\"", path("b", "")) + path("c", ""), "fixedPath");
    const std::string ours = project("ours", path("a", "k=\"2\"", path("b", "")) + path("c", ""), "fixedPath");
    const std::string theirs =
        project("theirs", path("new", "") + path("a", "k=\"3\"", path("b", "x=\"1\"")), "sqlite");
    const auto before = test::readTree(ours);
    EXPECT_THAT(run({"merge", "--dry-run", base, ours, theirs}).out,
                HasSubstr("conflict: T:a: k: ours \"2\", theirs \"3\", base \"1\"\n"));
    EXPECT_EQ(test::readTree(ours), before);
    EXPECT_EQ(run({"merge", base, ours, theirs}).status, 1);
    const Outcome rest = run({"diff", ours, theirs});
    EXPECT_EQ(rest.out,
              "~ T:a\n    ~ node Info\n        - k=\"2\"\n        + k=\"3\"\n        - node Conflict\n"
              "            - Base=\"1\"\n            - Key=\"k\"\n            - Ours=\"2\"\n"
              "            - Theirs=\"3\"\n            - What=\"attribute\"\n");
}

TEST_F(CompareTest, mergesExportedFilesAndProjects) {
    const std::string base = file("base", path("a", "k=\"1\"") + path("b", ""));
    const std::string after = path("a", "k=\"2\"") + path("b", "") + path("c", "");
    const std::string ours = project("ours", path("a", "k=\"2\"") + path("b", ""), "fixedPath");
    const std::string theirs = project("theirs", path("a", "k=\"1\"") + path("b", "") + path("c", ""), "sqlite");
    expectSuccess(run({"merge", base, ours, theirs}), "");
    expectSuccess(run({"diff", ours, file("after", after)}), "");
    expectSuccess(run({"merge", base, folder / "theirs.xml", ours, "-o", folder / "result.xml"}), "");
    EXPECT_EQ(contentOf(folder / "result.xml"), after);
    // What comes from the standard input has no place but the standard output.
    const test::Surroundings input = test::withInput(test::readBytes(folder / "theirs.xml"));
    expectSuccess(run({"merge", base, "-", ours}, input), test::readBytes(folder / "result.xml"));
    expectSuccess(run({"merge", base, "-", ours, "-o", "-"}, input), test::readBytes(folder / "result.xml"));
}

TEST_F(CompareTest, aConflictIsSettledByTakingOneSide) {
    const auto version = [&](const std::string& name, const std::string& node, const std::string& more) {
        return project(name, "<Path Location=\"a\" Type=\"T\"><Node>" + node + "</Node></Path>" + more, "fixedPath");
    };
    const std::string part = R"(<Part Id="1" k="0"/><Part Id="2" k="0"/>)";
    const std::string base = version("base", R"(<Info k="0" l="0" m="0">)" + part + "</Info>", path("g", "k=\"0\""));
    const std::string theirs = version("theirs", R"(<Data k="2" m="2"><Part Id="1" k="2"/></Data>)", "");
    struct Case {
        std::string side, expected;
    };
    for (const auto& [side, expected] :
         std::vector<Case>{{"ours", R"(<Item k="1" l="1"><Part Id="1" k="1"/><Part Id="2" k="1"/></Item>)"},
                           {"theirs", R"(<Data k="2" m="2"><Part Id="1" k="2"/></Data>)"}}) {
        const std::string ours =
            version(side + " settled", R"(<Item k="1" l="1"><Part Id="1" k="1"/><Part Id="2" k="1"/></Item>)",
                    path("g", "k=\"1\""));
        EXPECT_EQ(run({"merge", base, ours, theirs}).status, 1);
        const auto before = test::readTree(ours);
        // k, l, m, the name, and of the parts one k and one that theirs has removed.
        EXPECT_THAT(run({"merge", "-C", ours, "--settle", "T:a", side, "--dry-run"}).out, HasSubstr("Would settle 6"));
        EXPECT_EQ(test::readTree(ours), before);
        test::Surroundings inside;
        inside.folder = ours;
        expectSuccess(run({"merge", "--settle", "T:a", side}, inside), "Settled 6 conflicts at T:a\n");
        EXPECT_EQ(run({"export", ours, "-o", folder / (side + " result.xml")}).status, 0);
        EXPECT_THAT(contentOf(folder / (side + " result.xml")), HasSubstr("<Node>" + expected + "</Node>"));
        expectFailure(run({"merge", "-C", ours, "--settle", "T:a", side}), 1, {"T:a"});
    }
    // What side has removed the path cannot be taken here; the other can.
    const std::string settled = folder / "ours settled";
    expectFailure(run({"merge", "-C", settled, "--settle", "T:g", "theirs"}), 3, {"remove"});
    EXPECT_EQ(run({"merge", "-C", settled, "--settle", "T:g", "ours", "-q"}).status, 0);
    EXPECT_EQ(run({"check", settled}).status, 0);
    expectFailure(run({"merge", "-C", settled, "--settle", "T:g", "both"}), 2, {"both"});
    expectFailure(run({"merge", base, "--settle", "T:g", "ours"}), 2, {base});
    // A path without a node has none any more once it is settled, unless somebody has put something into it.
    const std::string branch = "<Path Location=\"b\" Type=\"T\">";
    const auto below = [&](const std::string& name, const std::string& node) {
        return project(name, branch + path("c", node) + "</Path>", "fixedPath");
    };
    const std::string kept = below("kept", "k=\"1\"");
    EXPECT_EQ(run({"merge", below("old", ""), kept, project("gone", "", "fixedPath")}).status, 1);
    EXPECT_EQ(run({"check", kept}).status, 1);
    const std::string written = folder / "written";
    fs::copy(kept, written, fs::copy_options::recursive);
    EXPECT_EQ(run({"merge", "-C", kept, "--settle", "T:b", "ours", "-q"}).status, 0);
    expectSuccess(run({"diff", kept, below("same", "k=\"1\"")}), "");
    EXPECT_EQ(run({"set", written, "T:b", "Mine=1", "-q"}).status, 0);
    EXPECT_EQ(run({"merge", "-C", written, "--settle", "T:b", "ours", "-q"}).status, 0);
    expectSuccess(run({"get", written, "T:b", "Mine"}), "1\n");

    const auto marked = [&](const std::string& mark) {
        static int number = 0;
        return version("marked" + std::to_string(++number), "<Info><Conflict " + mark + "/></Info>", "");
    };
    const auto settle = [&](const std::string& place, const std::string& side) {
        return run({"merge", "-q", "-C", place, "--settle", "T:a", side}).status;
    };
    EXPECT_EQ(settle(marked(R"(What="order")"), "theirs"), 3);
    EXPECT_EQ(settle(marked(R"(What="order")"), "ours"), 0);
    EXPECT_EQ(settle(marked(R"(Name="Part" What="children")"), "ours"), 3);
    EXPECT_EQ(settle(marked(R"(Ours="T:b" What="path")"), "ours"), 3);
    EXPECT_EQ(settle(marked(R"(Text="somebody's own")"), "ours"), 1);
}

}  // namespace
