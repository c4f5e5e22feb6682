/// check: everything that is wrong with a project is told, and what can be mended is mended.
#include <fcntl.h>
#include <sys/file.h>

#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectFailure;
using test::Outcome;
using test::run;
using test::Surroundings;
using test::writeBytes;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class CheckTest : public test::ProjectFixture {
protected:
    /// A project with the paths T:a, T:a|T:b and T:c.
    void fill(const std::string& store = "fixedPath") const {
        init(store);
        for (const std::string path : {"T:a", "T:a|T:b", "T:c"})
            ASSERT_EQ(run({"set", "--create", root, path, "k=1"}).status, 0);
    }

    /// What is printed on the standard output, with relative file names; `status` is expected.
    std::string check(int status, const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments{"check", root};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, status) << outcome.out << outcome.err;
        const std::string prefix = metadata.native() + '/';
        for (std::size_t at = 0; (at = outcome.out.find(prefix)) != std::string::npos;)
            outcome.out.erase(at, prefix.size());
        return outcome.out;
    }

    const fs::path metadata = coreFile.parent_path();
};

TEST_F(CheckTest, findsNothingInASoundProject) {
    for (const std::string store : {"fixedPath", "monolithic", "sqlite"}) {
        fs::remove_all(metadata);
        fill(store);
        ASSERT_EQ(run({"uuid", root, "--new"}).status, 0);
        const auto before = test::readTree(root);
        EXPECT_THAT(check(0), testing::EndsWith("and 3 paths read\n0 problems\n")) << store;
        EXPECT_EQ(check(0, {"-q", "--repair"}), "0 problems\n");
        EXPECT_EQ(test::readTree(root), before);
    }
    expectFailure(run({"check", folder.std()}), 4, {"holds no project metadata"});
}

TEST_F(CheckTest, namesFileLineAndProblem) {
    fill();
    writeBytes(metadata / "T=c.xml", "<?xml version=\"1.0\"?>\n<Path Location=\"c\"\n  Type=\"T\"><Node>\n</Path>\n");
    writeBytes(metadata / "T=d.xml", "<Path Location=\"x\" Type=\"T\" Rank=\"a1\"/>");
    writeBytes(metadata / "T=e.xml", "<!DOCTYPE Path [<!ENTITY f SYSTEM \"" + (folder / "secret").native() +
                                         "\">]>\n<Path Location=\"e\" Type=\"T\" Rank=\"a2\">&f;\n<\n</Path>");
    writeBytes(metadata / "T=f.xml",
               "<Path Location=\"f\" Type=\"T\" Rank=\"a3\">\n<Node><N k=\"\xF0\x9F\x90\x80\"/></Node>\n" +
                   std::string(20, '\n') + "</Path>");
    writeBytes(folder / "secret", "top secret");
    writeBytes(metadata / "uuid-12.xml", "<uuid/>");
    writeBytes(metadata / "readme\x1b.txt", "");
    writeBytes(root / ".TolvaneProject/Project.xml", "<Project MetadataType=\"monolithic\"/>");
    fs::remove(metadata / "T=a.xml");
    const std::string out = check(1);
    EXPECT_THAT(out,
                AllOf(HasSubstr("T=c.xml:4: it is no well-formed XML"), HasSubstr("T=d.xml: its name does not fit"),
                      HasSubstr("T=e.xml:3: it is no well-formed XML"), HasSubstr("uuid-12.xml: its name"),
                      HasSubstr("T=a.xml: it is missing"), HasSubstr(".TolvaneProject/Project.xml: it is not used"),
                      HasSubstr("T=f.xml:2: the value of the attribute \"k\""), HasSubstr("\n7 problems\n"),
                      Not(HasSubstr("readme")), Not(HasSubstr("secret"))));
    EXPECT_THAT(check(1, {"-v"}), HasSubstr("readme\\u001B.txt: it does not belong to the metadata\n"));
    const auto json = nlohmann::json::parse(run({"check", root, "--json"}).out);
    EXPECT_EQ(json["problems"].size(), 7U);
    EXPECT_EQ(json["problems"][2]["line"], 4);
}

TEST_F(CheckTest, tellsWhatIsWrongWithTheCoreFile) {
    for (const std::string content : {"<Project MetadataType=\"odd\"/>", "<Project/>", "<Project\n<"}) {
        writeBytes(coreFile, content);
        EXPECT_THAT(check(1), AllOf(HasSubstr("Project.xml:"), HasSubstr("\n1 problem\n"))) << content;
        EXPECT_THAT(check(1, {"--repair"}), HasSubstr("\n1 problem\n"));
        EXPECT_EQ(test::readBytes(coreFile), content);
    }
}

TEST_F(CheckTest, namesTheFileInWhichAConflictIsLeft) {
    for (const auto& [store, file] : std::vector<std::pair<std::string, std::string>>{
             {"fixedPath", "T=a/T=b.xml"}, {"monolithic", "Project.xml"}, {"sqlite", "metadata.db"}}) {
        fs::remove_all(metadata);
        fill(store);
        ASSERT_EQ(run({"set", "-q", "--create", root, "T:a|T:b#Conflict", "What=order"}).status, 0);
        EXPECT_THAT(check(1), testing::StartsWith(file + ": T:a|T:b: a conflict of a merge is not settled\n"));
    }
}

TEST_F(CheckTest, tellsEveryDamageOfTheFileThatHasIt) {
    writeBytes(coreFile, "<Project MetadataType=\"monolithic\"><Odd/><Even/></Project>");
    EXPECT_THAT(check(1), AllOf(HasSubstr("Project.xml: it holds <Odd>"), HasSubstr("Project.xml: it holds <Even>"),
                                HasSubstr("\n2 problems\n")));
    fs::remove_all(metadata);
    fill("sqlite");
    writeBytes(metadata / "metadata.db", std::string(1000, '-'));
    EXPECT_THAT(check(1), MatchesRegex("metadata.db: [^\n/]+\n2 files and 0 paths read\n1 problem\n"));
}

TEST_F(CheckTest, repairsWithoutLosingAnything) {
    fill();
    writeBytes(metadata / "T=a.xml", "<<<<<<< ours");
    writeBytes(metadata / ".lock", "");
    const auto before = test::readTree(root);
    EXPECT_THAT(check(1, {"--repair", "--dry-run"}), HasSubstr("would repair: T=a.xml is moved to"));
    EXPECT_EQ(test::readTree(root), before);
    EXPECT_THAT(check(0, {"--repair"}),
                AllOf(HasSubstr("repaired: T=a.xml is moved to"), HasSubstr("T=a.xml is given back"),
                      HasSubstr("repaired: .lock is removed"), HasSubstr("\n0 problems\n")));
    EXPECT_EQ(test::readBytes(root / "resources/project.damaged/T=a.xml"), "<<<<<<< ours");
    EXPECT_EQ(run({"get", root, "T:a|T:b", "k"}).out, "1\n");
    EXPECT_EQ(check(0, {"-q"}), "0 problems\n");
    EXPECT_THAT(run({"scan", root, "--dry-run", "-v"}).out, Not(HasSubstr("damaged")));
}

TEST_F(CheckTest, movesNothingAsideThatCannotBeHadNow) {
    fill();
    const Surroundings nobody{test::movedInstallation(), {}, {}, test::becomeUnprivileged};
    for (const fs::path& each : {fs::path(root), metadata.parent_path(), metadata})
        fs::permissions(each, fs::perms::all);
    for (const std::string name : {"Project.xml", "T=c.xml"}) {
        fs::permissions(metadata / name, fs::perms::none);
        const auto before = test::readTree(root);
        const Outcome outcome = run({"check", root, "--repair"}, nobody);
        EXPECT_EQ(outcome.status, 1) << name << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr(name + ": Permission denied"));
        EXPECT_EQ(test::readTree(root), before);
        fs::permissions(metadata / name, fs::perms::owner_all);
    }
    // A link is damage, wherever it leads.
    fs::remove(metadata / "T=c.xml");
    fs::create_symlink("nowhere", metadata / "T=c.xml");
    const std::string problem = "T=c.xml: it is a symbolic link, which is not followed\n";
    EXPECT_THAT(check(1, {"--repair", "--dry-run"}), HasSubstr(problem + "would repair: T=c.xml is moved to"));
    EXPECT_THAT(check(0, {"--repair"}), HasSubstr(problem + "repaired: T=c.xml is moved to"));
    EXPECT_TRUE(fs::is_symlink(root / "resources/project.damaged/T=c.xml"));
}

TEST_F(CheckTest, tellsWhatTheCoreFileOfADatabaseHoldsBesides) {
    fill("sqlite");
    for (const std::string core :
         {"<Project MetadataType=\"sqlite\"><!-- mine --></Project>", "<Project MetadataType=\"sqlite\" Mine=\"1\"/>",
          "<Project MetadataType=\"sqlite\"><Node><Mine/></Node></Project>"}) {
        writeBytes(coreFile, core);
        EXPECT_THAT(check(1, {"--repair"}), AllOf(HasSubstr("Project.xml: it holds "), HasSubstr("\n1 problem\n")));
        expectFailure(run({"convert", root, "--store", "monolithic"}), 3, {coreFile, "would get lost"});
        EXPECT_EQ(run({"set", root, "T:a", "k=2"}).status, 0);
        EXPECT_EQ(test::readBytes(coreFile), core);
    }
}

TEST_F(CheckTest, findsAndRepairsTheSameByARelativeName) {
    fill();
    writeBytes(metadata / "T=a.xml", "<<<<<<< ours");
    const fs::path above = fs::path(root).parent_path();
    const std::string name = fs::path(root).filename();
    const Surroundings inside{{}, above, {}, {}};
    EXPECT_EQ(run({"check", name}, inside).out, run({"check", root}).out);
    EXPECT_EQ(run({"check", name, "--repair"}, inside).status, 0);
    EXPECT_EQ(test::readBytes(root / "resources/project.damaged/T=a.xml"), "<<<<<<< ours");
    EXPECT_EQ(run({"convert", name, "--store", "monolithic"}, inside).status, 0);
    EXPECT_EQ(run({"get", root, "T:a|T:b", "k"}).out, "1\n");
    EXPECT_FALSE(fs::exists(metadata / "T=c.xml"));
}

TEST_F(CheckTest, makesACoreFileAnewBesideASoundDatabase) {
    fill("sqlite");
    const std::string core = test::readBytes(coreFile);
    const std::string database = test::readBytes(metadata / "metadata.db");
    for (const std::string damaged : {"", "<Project Meta"}) {
        writeBytes(coreFile, damaged);
        EXPECT_EQ(run({"get", root, "T:a|T:b", "k"}).out, "1\n");
        EXPECT_THAT(check(1, {"--repair", "--dry-run"}), HasSubstr("would repair: Project.xml is made anew"));
        EXPECT_EQ(test::readBytes(coreFile), damaged);
        EXPECT_THAT(check(0, {"--repair"}), AllOf(HasSubstr("repaired: Project.xml is made anew; what was in it is in"),
                                                  HasSubstr("\n0 problems\n")));
        EXPECT_EQ(test::readBytes(coreFile), core);
        EXPECT_EQ(test::readBytes(metadata / "metadata.db"), database);
    }
    EXPECT_EQ(test::readBytes(root / "resources/project.damaged/Project.xml.2"), "<Project Meta");
    EXPECT_EQ(run({"get", root, "T:a|T:b", "k"}).out, "1\n");
}

TEST_F(CheckTest, removesWhatAKilledConversionLeft) {
    fill();
    const fs::path resources = metadata.parent_path();
    const fs::path leftover = resources / ".project-metadata-a";
    writeBytes(leftover / "new/resources/project/Project.xml", "<Project MetadataType=\"sqlite\"/>");
    writeBytes(resources / ".project-metadata-b/.lock", "");
    writeBytes(resources / ".project-metadata-b/somebody's", "");
    const int lock = open((leftover / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_EQ(check(0, {"-q", "--repair"}), "0 problems\n");
    close(lock);
    EXPECT_THAT(check(0, {"--repair"}),
                AllOf(HasSubstr("-a: a conversion that was killed"), HasSubstr("-a is removed")));
    EXPECT_FALSE(fs::exists(leftover));
    EXPECT_TRUE(fs::exists(resources / ".project-metadata-b/somebody's"));
}

TEST_F(CheckTest, interruptedChangesAreLeftAloneUntilRepaired) {
    fill();
    // A journal that is decided, with one step left: to remove T:c.
    const std::string journal = std::string("project_metadata batch 1\nDT=c.xml") + '\0';
    writeBytes(metadata / ".pending/journal", journal);
    fs::create_directories(metadata / ".pending/new");
    fs::create_directories(metadata / ".pending/old");
    const auto before = test::readTree(root);
    EXPECT_THAT(check(1), HasSubstr(".pending: a change was interrupted"));
    EXPECT_EQ(test::readTree(root), before);
    EXPECT_THAT(check(0, {"--repair"}), HasSubstr("the change that was interrupted is completed"));
    EXPECT_FALSE(fs::exists(metadata / ".pending") || fs::exists(metadata / "T=c.xml"));

    // One whose journal is damaged: nobody can complete it, and nothing that it has is lost.
    writeBytes(metadata / ".pending/journal", "no journal");
    writeBytes(metadata / ".pending/old/0", "the only copy");
    EXPECT_EQ(run({"tree", root}).status, 0);
    EXPECT_THAT(check(1, {"--repair", "--dry-run"}), HasSubstr("would repair: .pending is moved aside"));
    EXPECT_THAT(check(0, {"--repair"}), HasSubstr("repaired: .pending is moved aside, because its journal is damaged"));
    EXPECT_EQ(test::readBytes(metadata / "damaged-change-1/old/0"), "the only copy");
    EXPECT_EQ(run({"set", root, "--create", "T:d", "k=1"}).status, 0);

    // One that was not decided, while somebody is at work, and afterwards.
    writeBytes(metadata / ".pending/new/0", "half a fi");
    const int lock = open((metadata / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_EQ(check(0, {"-q", "--repair"}), "0 problems\n");
    close(lock);
    EXPECT_THAT(check(0, {"--repair"}), HasSubstr("had not been decided"));
    EXPECT_FALSE(fs::exists(metadata / ".pending") || fs::exists(metadata / ".lock"));
}

}  // namespace
