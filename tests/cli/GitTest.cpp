/// git-setup: git compares and merges files of metadata with this command.
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

TEST_F(GitTest, setupCanBeRepeatedAndTakenBack) {
    const auto settings = [&] { return test::readBytes(root / ".git/config"); };
    const std::string before = settings();
    test::writeBytes(root / ".gitattributes", "*.bin binary");
    test::writeBytes(root / ".gitattributes.new", "somebody's");
    setUp({"--attributes", "--dry-run"});
    EXPECT_EQ(settings(), before);
    setUp({"--attributes"});
    const auto tree = test::readTree(root);
    EXPECT_THAT(tree.at(".gitattributes"), HasSubstr("*.bin binary\n# project-metadata: begin"));
    expectSuccess(run({"git-setup", root, "--attributes"}, {test::movedInstallation(), {}, {}, {}}), "");
    EXPECT_EQ(test::readTree(root), tree);
    setUp({"--attributes", "--remove"});
    EXPECT_EQ(settings(), before);
    EXPECT_EQ(test::readBytes(root / ".gitattributes"), "*.bin binary\n");
    EXPECT_EQ(test::readBytes(root / ".gitattributes.new"), "somebody's");
    std::filesystem::rename(root / ".gitattributes", folder / "shared");
    std::filesystem::create_symlink(folder / "shared", root / ".gitattributes");
    test::expectFailure(run({"git-setup", root, "--attributes"}), 3, {".gitattributes", "symbolic link"});
    EXPECT_EQ(settings(), before);
    test::expectFailure(run({"git-setup", folder.std()}), 3, {folder.std(), "not in the work tree"});
}

}  // namespace
