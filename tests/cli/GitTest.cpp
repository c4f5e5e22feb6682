/// git-setup: git compares and merges files of metadata with this command.
#include <functional>

#include "tests/cli/ProjectFixture.hpp"
#include "tests/support/Git.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectSuccess;
using test::Outcome;
using test::run;
using testing::HasSubstr;
using testing::Not;

/// A project in a folder of a repository.
class GitTest : public test::ProjectFixture {
protected:
    GitTest() {
        git("init -q -b base");
        init();
        set("k=1", "l=1", "m=1");
        commit();
    }

    std::string git(const std::string& arguments) const { return test::runGit(root, arguments); }

    /// Gives the one path of the project attributes.
    template <class... Attributes>
    void set(const Attributes&... attributes) const {
        const Outcome outcome = run({"set", "--create", root, "T:a", attributes...});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }

    void commit() const {
        git("add -A");
        git("commit -q -m change");
    }

    void branch(const std::string& name, const std::string& attribute) const {
        git("checkout -q -b " + name + " base");
        set(attribute);
        commit();
    }

    void setUp(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments{"git-setup", root};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run(arguments, {test::movedInstallation(), {}, {}, {}});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }

    /// Gives the path with the file `name` the node `xml`.
    void setNode(const std::string& name, const std::string& xml) const {
        const fs::path file = nodeFile.parent_path() / name;
        const std::string bytes = test::readBytes(file);
        const std::size_t begin = bytes.find("<Node>") + std::string("<Node>").size();
        test::writeBytes(file, bytes.substr(0, begin) + xml + bytes.substr(bytes.find("</Node>")));
    }

    const fs::path nodeFile = root / "resources/project/T=a.xml";
};

TEST_F(GitTest, gitMergesAttributesAndShowsPaths) {
    branch("ours", "k=2");
    branch("theirs", "l=3");
    branch("conflicting", "k=4");
    setUp();
    git("checkout -q ours");
    EXPECT_THAT(git("diff base"), testing::AllOf(HasSubstr("-        k=\"1\"\n+        k=\"2\"\n"),
                                                 HasSubstr("     node Info\n"), Not(HasSubstr("<"))));
    git("merge -q --no-edit theirs");
    EXPECT_EQ(git("status --porcelain"), "");
    for (const std::string pair : {"k=2", "l=3", "m=1"})
        EXPECT_EQ(run({"get", root, "T:a", pair.substr(0, 1)}).out, pair.substr(2) + "\n");

    EXPECT_THAT(git("merge conflicting || test $? = 1"),
                testing::AllOf(HasSubstr("resources/project/T=a.xml: T:a: k: ours \"2\", theirs \"4\", base \"1\""),
                               HasSubstr("CONFLICT (content)")));
    EXPECT_EQ(git("status --porcelain"), "UU resources/project/T=a.xml\n");
    EXPECT_EQ(run({"get", root, "T:a", "k"}).out, "2\n");
    EXPECT_THAT(test::readBytes(nodeFile), HasSubstr(R"(Ours="2" Theirs="4")"));
}

/// Both have added the file, each with a place of its own among its siblings.
TEST_F(GitTest, aFileThatBothHaveAddedMergesIfOnlyItsRankDiffers) {
    setUp();
    for (const std::string side : {"ours", "theirs"}) {
        git("checkout -q -b " + side + " base");
        // What lies between gives the second one another rank.
        const std::vector<std::string> added =
            side == "ours" ? std::vector<std::string>{"T:b"} : std::vector<std::string>{"T:between", "T:b"};
        for (const std::string& path : added)
            ASSERT_EQ(run({"add", root, path}).status, 0);
        fs::remove(nodeFile.parent_path() / "T=between.xml");
        commit();
    }
    const std::string rank = test::readBytes(nodeFile.parent_path() / "T=b.xml");
    git("merge -q --no-edit ours");
    EXPECT_EQ(git("diff ours"), "");
    EXPECT_NE(test::readBytes(nodeFile.parent_path() / "T=b.xml"), rank);
}

/// The edit of one child node must not land on another when the other side has removed it.
TEST_F(GitTest, childNodesAreMergedByTheirIdentity) {
    const auto write = [&](const std::string& parts) {
        setNode("T=a.xml", "<Info>" + parts + "</Info>");
        commit();
    };
    const std::string washer = R"(<part id="washer"/>)";
    write(R"(<part id="bolt"/><part id="nut"/>)" + washer);
    setUp();
    git("checkout -q -b theirs");
    write(R"(<part checked="1" id="bolt"/><part id="nut"/>)" + washer);
    git("checkout -q -b ours base");
    write(R"(<part id="nut" size="2"/>)" + washer);
    EXPECT_THAT(git("merge theirs || test $? = 1"), HasSubstr("T:a: node part[1]: ours removed it, theirs changed it"));
    EXPECT_EQ(run({"show", root, "T:a"}).out,
              "T:a\nInfo\n    part\n        checked = 1\n        id      = bolt\n        Conflict\n"
              "            RemovedBy = ours\n            What      = removed\n    part\n        id   = nut\n"
              "        size = 2\n    part\n        id = washer\n0 paths directly below\n");
}

/// Git takes a file that is like another one for that one, renamed.
TEST_F(GitTest, anotherPathIsNoVersionOfThisOne) {
    std::string parts;
    for (const char* const id : {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"})
        parts += std::string("<part id=\"") + id + "\"/>\n";
    const auto fill = [&](const std::string& name, const std::string& value) {
        EXPECT_EQ(run({"set", "--create", root, "T:" + name, "s=" + value}).status, 0);
        setNode("T=" + name + ".xml", "<Info s=\"" + value + "\">" + parts + "</Info>");
    };
    fill("pump", "1");
    commit();
    setUp();
    git("checkout -q -b theirs");
    fill("pump", "2");
    commit();
    git("checkout -q -b ours base");
    EXPECT_EQ(run({"remove", root, "T:pump"}).status, 0);
    fill("valve", "3");
    commit();
    for (const bool isSwapped : {false, true}) {
        git(isSwapped ? "checkout -q theirs" : "checkout -q ours");
        EXPECT_THAT(git((isSwapped ? "merge ours" : "merge theirs") + std::string(" || test $? = 1")),
                    HasSubstr("T:valve: the versions are of different paths"));
        EXPECT_EQ(run({"get", root, "T:valve", "s"}).out, "3\n");
        git("reset -q --hard");
    }
}

/// What the driver would lose is merged by git itself.
TEST_F(GitTest, filesThatHoldMoreThanMetadataAreMergedAsText) {
    const auto write = [&](const std::string& first, const std::string& last) {
        test::writeBytes(nodeFile, "<!--" + first + "-->\n<a>\n\n\n\n\n\n" + last + "\n</a>\n");
        commit();
    };
    write("first", "text");
    setUp();
    EXPECT_EQ(run({"textconv", nodeFile}).out, "<!--first-->\n<a>\n\n\n\n\n\ntext\n</a>\n");
    git("checkout -q -b theirs");
    write("first", "other text");
    git("checkout -q -b ours base");
    write("changed", "text");
    git("merge -q --no-edit theirs");
    EXPECT_EQ(test::readBytes(nodeFile), "<!--changed-->\n<a>\n\n\n\n\n\nother text\n</a>\n");
    git("checkout -q -b conflicting base");
    write("other", "text");
    EXPECT_THAT(git("merge ours || test $? = 1"), HasSubstr("CONFLICT (content)"));
    EXPECT_THAT(test::readBytes(nodeFile), HasSubstr("<<<<<<< ours\n<!--other-->\n======="));
}

/// One side removes a path, the other adds one below it: git merges the files, and the path has none.
TEST_F(GitTest, aPathWithoutFileIsABranch) {
    const auto commitTo = [&](const std::string& name, const std::vector<std::string>& arguments) {
        git("checkout -q -b " + name + " base");
        EXPECT_EQ(run(arguments).status, 0);
        commit();
    };
    setUp();
    commitTo("theirs", {"set", "--create", root, "T:a|T:b", "k=1"});
    commitTo("ours", {"remove", root, "T:a"});
    const fs::path before = folder / "before", after = folder / "after";
    fs::copy(root, before, fs::copy_options::recursive);
    git("merge -q --no-edit theirs");
    EXPECT_FALSE(fs::exists(nodeFile));
    EXPECT_EQ(run({"diff", before, root}).out, "+ T:a\n+ T:a|T:b\n    + node Info\n        + k=\"1\"\n");
    EXPECT_EQ(run({"merge", before, before, root}).status, 0);
    expectSuccess(run({"diff", before, root}), "");
    fs::copy(root, after, fs::copy_options::recursive);
    EXPECT_EQ(run({"convert", root, "--store", "monolithic"}).status, 0);
    expectSuccess(run({"diff", after, root}), "");
    EXPECT_EQ(run({"check", after}).status, 1);
    EXPECT_EQ(run({"check", root}).status, 0);
}

/// Two people who scan, each in a clone, get along: by the driver, and with what git itself merges.
TEST_F(GitTest, twoClonesThatScanMerge) {
    for (const std::string store : {"fixedPath", "monolithic"}) {
        const fs::path shared = folder / store;
        fs::create_directories(shared);
        for (const char* const file : {"b", "d", "sub/f", "sub/h", "both"})
            test::writeBytes(shared / file, "1\n2\n3\n4\n5\n6\n7\n8\n9\n");
        test::runGit(shared, "init -q -b base");
        EXPECT_EQ(run({"init", "-q", shared, "--store", store}).status, 0);
        test::Surroundings own;
        own.variables["XDG_STATE_HOME"] = folder / "state";
        const auto work = [&](const std::string& name, const std::function<void(const fs::path&)>& change) {
            const fs::path clone = name.empty() ? shared : folder / (store + name);
            if (!name.empty()) {
                test::runGit(folder.std(), "clone -q '" + shared.string() + "' '" + clone.string() + "'");
                EXPECT_EQ(run({"git-setup", "-q", clone}, {test::movedInstallation(), {}, {}, {}}).status, 0);
            }
            EXPECT_EQ(run({"scan", "-q", clone}, own).status, 0);  // from now on, files are known again
            change(clone);
            EXPECT_EQ(run({"scan", "-q", clone}, own).status, 0);
            test::runGit(clone, "add -A");
            test::runGit(clone, "commit -q -m change");
            return clone;
        };
        const auto set = [](const fs::path& place, const std::string& path, const std::string& attribute) {
            EXPECT_EQ(run({"set", "-q", place, path, attribute}).status, 0);
        };
        work("", [](const fs::path&) {});
        const fs::path ours = work("ours", [&](const fs::path& place) {
            test::writeBytes(place / "c", "");
            test::writeBytes(place / "sub/g", "");
            test::writeBytes(place / "both", "1, and more\n2\n3\n4\n5\n6\n7\n8\n9\n");
            set(place, "File:b", "By=ours");
            set(place, "Folder:sub|File:f", "By=ours");
            EXPECT_EQ(run({"scan", "-q", place}).status, 0);
            fs::remove(place / "d");
        });
        const fs::path theirs = work("theirs", [&](const fs::path& place) {
            test::writeBytes(place / "a", "");
            test::writeBytes(place / "e", "");
            test::writeBytes(place / "both", "1\n2\n3\n4\n5\n6\n7\n8\n9, and\nmuch more\n");
            set(place, "File:b", "Reviewed=yes");
            set(place, "Folder:sub|File:h", "By=theirs");
            fs::rename(place / "sub/h", place / "sub/hh");
        });
        test::runGit(ours, "fetch -q '" + theirs.string() + "' base:theirs");
        // The one conflict is the size of the file that both have changed, and that git has merged.
        EXPECT_THAT(git("-C '" + ours.string() + "' merge theirs || test $? = 1"),
                    testing::AllOf(HasSubstr("File:both: Size: ours"), Not(HasSubstr("File:b:"))));
        EXPECT_THAT(test::readBytes(ours / "both"), testing::AllOf(HasSubstr("1, and more\n"), HasSubstr("9, and\n")));
        EXPECT_EQ(run({"scan", ours, "-v"}).out, "~ File:both\n0 added, 1 updated, 0 removed; 8 files, 2 folders\n");
        EXPECT_EQ(run({"check", ours}).status, 0);
        EXPECT_EQ(run({"tree", "--attributes", ours}).out, ours.string() + R"(
├── File:a  Info Kind=file Size=0
├── File:b  Info By=ours Kind=file Reviewed=yes Size=18
├── File:both  Info Kind=file Size=43
├── File:c  Info Kind=file Size=0
├── File:e  Info Kind=file Size=0
├── Folder:resources  Info Kind=folder
└── Folder:sub  Info Kind=folder
    ├── File:f  Info By=ours Kind=file Size=18
    ├── File:g  Info Kind=file Size=0
    └── File:hh  Info By=theirs Kind=file Size=18
)");
    }
}

TEST_F(GitTest, setupCanBeRepeatedAndTakenBack) {
    const auto settings = [&] { return test::readBytes(root / ".git/config"); };
    const std::string before = settings();
    test::writeBytes(root / ".gitattributes", "*.bin binary");
    test::writeBytes(root / ".gitattributes.new", "somebody's");
    setUp({"--shared", "--dry-run"});
    EXPECT_EQ(settings(), before);
    setUp({"--shared"});
    const auto tree = test::readTree(root);
    EXPECT_THAT(tree.at(".gitattributes"), HasSubstr("*.bin binary\n# project-metadata: begin"));
    expectSuccess(run({"git-setup", root, "--shared"}, {test::movedInstallation(), {}, {}, {}}), "");
    EXPECT_EQ(test::readTree(root), tree);
    setUp({"--shared", "--remove"});
    EXPECT_EQ(settings(), before);
    git("config merge.directoryRenames conflict");
    setUp({"--shared"});
    EXPECT_EQ(git("config merge.directoryRenames"), "false\n");
    setUp({"--shared", "--remove"});
    EXPECT_EQ(git("config merge.directoryRenames"), "conflict\n");
    git("config --unset merge.directoryRenames");
    EXPECT_EQ(test::readBytes(root / ".gitattributes"), "*.bin binary\n");
    EXPECT_EQ(test::readBytes(root / ".gitattributes.new"), "somebody's");
    std::filesystem::rename(root / ".gitattributes", folder / "shared");
    std::filesystem::create_symlink(folder / "shared", root / ".gitattributes");
    test::expectFailure(run({"git-setup", root, "--shared"}), 3, {".gitattributes", "symbolic link"});
    EXPECT_EQ(settings(), before);
    test::expectFailure(run({"git-setup", folder.std()}), 3, {folder.std(), "not in the work tree"});
}

}  // namespace
