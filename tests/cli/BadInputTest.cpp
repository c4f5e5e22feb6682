/// Damaged projects and disks that refuse: each ends with an error that names the path and the cause, and what was
/// there stays as it was.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectFailure;
using test::Outcome;
using test::readTree;
using test::run;
using test::sample;
using test::Surroundings;
using testing::HasSubstr;
using testing::MatchesRegex;

using DamagedProjectTest = test::ProjectFixture;
using FullDiskTest = test::ProjectFixture;

TEST_F(DamagedProjectTest, isRefusedByEveryCommandThatReadsIt) {
    init();
    const std::string whole = test::readBytes(coreFile);
    const std::map<std::string, std::string> damages{
        {"", "it is empty"},
        {whole.substr(0, whole.size() - 1), "XML"},
        {"\x7f"
         "ELF\x02\x01",
         "XML"},
        {"<Project MetadataType=\"fixedPath\">\n<Info></Project>", "in line 2, it is no well-formed XML"},
        {"<Project MetadataType=\"monolithic\">\n<Info></Project>", "in line 2, it is no well-formed XML"},
        {"<Project MetadataType=\"cloud\"/>", "\"cloud\""},
        {"<Project/>", "no type"},
        {"<Project MetadataType=\"\"/>", "no type"}};
    for (const auto& [content, cause] : damages) {
        test::writeBytes(coreFile, content);
        const auto before = readTree(root);
        for (const std::string command : {"tree", "scan", "textconv"})
            expectFailure(run({command, root}), 3, {coreFile, cause});
        expectFailure(run({"export", root, "-o", folder / "out.xml"}), 3, {coreFile, cause});
        EXPECT_EQ(readTree(root), before);
        EXPECT_FALSE(fs::exists(folder / "out.xml"));
    }
}

TEST_F(DamagedProjectTest, namesTheNodeFileThatCannotBeReadAndGoesOnWithoutIt) {
    init();
    ASSERT_EQ(run({"scan", root, sample}).status, 0);
    const fs::path nodeFile = coreFile.parent_path() / "File=README.md.xml";
    const std::string sound = test::readBytes(nodeFile);
    test::writeBytes(nodeFile, "<Path");
    const auto before = readTree(root);
    const Outcome exported = run({"export", root, "-o", folder / "out.xml"});
    EXPECT_EQ(exported.status, 1);
    EXPECT_THAT(exported.err, MatchesRegex("[^\n]+ lacks [^\n]+: 1 file\n    \"" + nodeFile.native() +
                                           "\" is damaged: in line 1, it is no well-formed XML[^\n]+\n"));
    EXPECT_THAT(test::readBytes(folder / "out.xml"), HasSubstr("Makefile"));
    const Outcome scanned = run({"scan", root, sample});
    EXPECT_EQ(scanned.status, 3);
    EXPECT_THAT(scanned.err, HasSubstr("project-metadata: Cannot read metadata from \"" + nodeFile.string()));
    expectFailure(run({"textconv", root}), 3, {"damaged", nodeFile});
    for (std::vector<std::string> line : std::vector<std::vector<std::string>>{
             {"remove", root, "File:README.md", "--node-only"}, {"remove", root, "File:README.md"}}) {
        EXPECT_EQ(run(line).status, 3);
        line.emplace_back("--dry-run");
        expectFailure(run(line), 3, {nodeFile});
    }
    EXPECT_EQ(readTree(root), before);

    // What is only besides metadata is another matter.
    test::writeBytes(nodeFile, sound + "<!-- mine -->");
    const Outcome whole = run({"export", root, "-o", folder / "whole.xml"});
    EXPECT_EQ(whole.status, 1);
    EXPECT_THAT(whole.err, testing::AllOf(HasSubstr(": 1 file\n    \"" + nodeFile.native() + "\" "),
                                          HasSubstr("a comment in line "), testing::Not(HasSubstr("damaged"))));
    EXPECT_THAT(test::readBytes(folder / "whole.xml"), HasSubstr("README.md"));
    for (std::vector<std::string> line :
         std::vector<std::vector<std::string>>{{"set", root, "File:README.md", "K=V"},
                                               {"remove", root, "File:README.md"},
                                               {"move", root, "File:README.md", "File:moved"}}) {
        expectFailure(run(line), 3, {nodeFile, "a comment"});
        line.emplace_back("--dry-run");
        expectFailure(run(line), 3, {nodeFile, "a comment"});
    }
}

TEST_F(DamagedProjectTest, saysThatNothingIsLackingWhereTheDamagedFileHoldsNoMetadata) {
    init("sqlite");
    ASSERT_EQ(run({"scan", root, sample}).status, 0);
    ASSERT_EQ(run({"export", root, "-o", folder / "sound.xml"}).status, 0);
    const std::string soundCore = test::readBytes(coreFile);
    for (const std::string& damaged : {std::string("<Project Meta"), soundCore + "<!-- mine -->"}) {
        test::writeBytes(coreFile, damaged);
        test::expectSuccess(run({"diff", root, folder / "sound.xml"}), "");
        test::expectSuccess(run({"merge", root, root, folder / "sound.xml"}), "");
        const auto before = readTree(root);
        const std::string cause = damaged.size() > soundCore.size() ? "a comment" : "no well-formed XML";
        expectFailure(run({"convert", root, "--store", "fixedPath"}), 3, {coreFile, cause});
        EXPECT_EQ(readTree(root), before);
    }
    test::writeBytes(coreFile, "<Project Meta");
    const Outcome whole = run({"export", root, "-o", folder / "whole.xml"});
    EXPECT_EQ(whole.status, 1);
    EXPECT_THAT(whole.err, MatchesRegex("[^\n]+ lacks nothing, [^\n]+: 1 file\n    \"" + coreFile.native() +
                                        "\" is damaged: in line 1, it is no well-formed XML[^\n]+\n"));
    EXPECT_EQ(test::readBytes(folder / "whole.xml"), test::readBytes(folder / "sound.xml"));
    const Outcome reported = run({"report", root, "-o", folder / "page.html"});
    EXPECT_EQ(reported.status, 1);
    EXPECT_THAT(reported.err, MatchesRegex("[^\n]+ lacks nothing, [^\n]+: 1 file\n"));
    EXPECT_THAT(test::readBytes(folder / "page.html"), HasSubstr("\"damages\":[],\n\"harmless\":[["));

    // Beside damage by which a node is lacking, both are told.
    const fs::path database = coreFile.parent_path() / "metadata.db";
    std::string bytes = test::readBytes(database);
    bytes.at(bytes.find("Kind") - 1) = '\xff';
    test::writeBytes(database, bytes);
    EXPECT_THAT(run({"export", root, "-o", folder / "lacking.xml"}).err,
                MatchesRegex("[^\n]+ lacks what is damaged [^\n]+: 1 file\n[^\n]+ lacks nothing, [^\n]+: 1 file\n"
                             "(    \"[^\n]+\" is damaged: [^\n]+\n)+"));
}

TEST_F(DamagedProjectTest, tellsOfDamageOnlyAtThePathThatIsExported) {
    struct Damage {
        std::string store, file, sound, damaged;
    };
    for (const auto& [store, name, sound, damaged] :
         std::vector<Damage>{{"fixedPath", "Folder=one.xml", "Path", "P"},
                             {"fixedPath", "Folder=one/T=b.xml", "Path", "P"},
                             {"monolithic", "Project.xml", "mark", "&#x1F400;"},
                             {"monolithic", "Project.xml", "Path Location=\"b\"", "Path Location=\"a\""},
                             {"sqlite", "metadata.db", "\4mark", "\xffmark"}}) {
        fs::remove_all(root);
        fs::create_directory(root);
        init(store);
        for (const std::string path : {"Folder:one", "Folder:one|T:a", "Folder:one|T:b", "Folder:two"})
            ASSERT_EQ(run({"set", "-C", root, path, "--create", path == "Folder:one" ? "K=mark" : "K=1"}).status, 0);
        const fs::path file = coreFile.parent_path() / name;
        std::string bytes = test::readBytes(file);
        bytes.replace(bytes.find(sound), sound.size(), damaged);
        test::writeBytes(file, bytes);
        const std::string exported = folder / "out.xml";
        test::expectSuccess(run({"export", root, "-o", exported, "--replace", "--path", "Folder:two"}),
                            exported + "\n");
        EXPECT_EQ(run({"export", root, "-o", exported, "--replace", "--path", "Folder:one"}).status, 1) << name;
    }
}

TEST_F(FullDiskTest, keepsTheOldContent) {
    for (const std::string store : {"fixedPath", "monolithic"}) {
        fs::remove_all(root);
        fs::create_directory(root);
        init(store);
        fs::create_directory(folder / "source");
        test::writeBytes(folder / "source/" / std::string(200, 'a'), "");
        ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);
        const auto before = readTree(root);

        for (int i = 0; i < 9; ++i)
            test::writeBytes(folder / "source" / (std::to_string(i) + std::string(200, 'a')), "");
        Surroundings full;
        full.prepare = test::limitFileSize(250);
        expectFailure(run({"scan", root, folder / "source"}, full), 3, {coreFile.parent_path(), "File too large"});
        EXPECT_EQ(readTree(root), before);
        fs::remove_all(folder / "source");
    }
}

TEST_F(FullDiskTest, leavesNoMarkerOfAUuid) {
    init();
    const auto before = readTree(root);
    Surroundings full;
    full.prepare = test::limitFileSize(3);
    expectFailure(run({"uuid", root, "--new"}, full), 3, {coreFile.parent_path() / "uuid-"});
    EXPECT_EQ(readTree(root), before);
}

/// Projects whose metadata folder is read-only for the user, and settings that allow to change that, or not.
class ReadOnlyProjectTest : public test::ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    ReadOnlyProjectTest() {
        fs::permissions(root, fs::perms::all);
        test::writeBytes(folder / "source/a", "");
        fs::create_directory(folder / "source/folder");
        test::writeBytes(folder / "settings.ini", "[korvex.project.metadata]\nMakeReadOnlyMetadataWritable = no\n");
        nobody.prefix = test::movedInstallation();
        nobody.prepare = test::becomeUnprivileged;
        nobody.variables["PROJECT_METADATA_SETTINGS"] = folder / "settings.ini";
        EXPECT_EQ(run({"init", root, "--store", GetParam()}, nobody).status, 0);
        EXPECT_EQ(run({"scan", root, folder / "source"}, nobody).status, 0);
        test::writeBytes(folder / "source/added", "");
        setWritable(false);
    }

    ~ReadOnlyProjectTest() override { setWritable(true); }

    void setWritable(bool writable) const {
        const auto change = writable ? fs::perm_options::add : fs::perm_options::remove;
        fs::permissions(coreFile.parent_path(), fs::perms::owner_write, change);
        for (const auto& entry : fs::recursive_directory_iterator(coreFile.parent_path()))
            fs::permissions(entry.path(), fs::perms::owner_write, change);
    }

    Surroundings nobody;
};

INSTANTIATE_TEST_SUITE_P(Stores, ReadOnlyProjectTest, testing::Values("fixedPath", "monolithic"), test::nameOfStore);

TEST_P(ReadOnlyProjectTest, staysAsItIsUnlessTheSettingsAllowMore) {
    const auto before = readTree(root);
    expectFailure(run({"scan", root, folder / "source"}, nobody), 3, {coreFile.parent_path(), "read-only"});
    expectFailure(run({"uuid", root, "--new"}, nobody), 3, {coreFile.parent_path(), "read-only"});
    ASSERT_EQ(run({"export", root, "-o", folder / "out.xml"}).status, 0);
    // A dry run fails where the real one would.
    for (const std::vector<std::string>& line :
         std::vector<std::vector<std::string>>{{"scan", root, folder / "source"},
                                               {"uuid", root, "--new"},
                                               {"set", root, "File:a", "k=v"},
                                               {"unset", root, "File:a", "Kind"},
                                               {"add", root, "T:x"},
                                               {"remove", root, "File:a"},
                                               {"move", root, "File:a", "File:b"},
                                               {"remove", root, "File:a", "--node-only"}}) {
        expectFailure(run(line, nobody), 3, {coreFile.parent_path(), "read-only"});
        std::vector<std::string> dry = line;
        dry.emplace_back("--dry-run");
        expectFailure(run(dry, nobody), 3, {coreFile.parent_path(), "read-only"});
    }
    EXPECT_EQ(readTree(root), before);
    EXPECT_EQ(run({"tree", root}, nobody).status, 0);
}

TEST_P(ReadOnlyProjectTest, isMadeWritableIfTheSettingsAllow) {
    test::writeBytes(folder / "settings.ini", "[korvex.project.metadata]\nMakeReadOnlyMetadataWritable = yes\n");
    const auto outcome = run({"scan", root, folder / "source"}, nobody);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(run({"tree", root}, nobody).out, root.native() + "\n├── File:a\n├── File:added\n└── Folder:folder\n");
}

TEST(PipeTest, inPlaceOfTheCoreFileHoldsNobodyUp) {
    const test::TempFolder folder;
    const fs::path metadata = folder / "project/resources/project";
    fs::create_directories(metadata);
    ASSERT_EQ(mkfifo((metadata / "Project.xml").c_str(), 0600), 0);
    Surroundings impatient;
    impatient.prepare = [] { alarm(20); };
    for (const auto& command : std::vector<std::vector<std::string>>{
             {"tree"}, {"init"}, {"locate"}, {"convert", "--store", "monolithic"}, {"set", "T:a", "k=1", "--create"}}) {
        std::vector<std::string> arguments = command;
        arguments.insert(arguments.begin() + 1, folder / "project");
        const auto outcome = run(arguments, impatient);
        EXPECT_EQ(outcome.status, 3) << command.front() << outcome.err;
        EXPECT_THAT(outcome.err, testing::HasSubstr("no regular file")) << command.front();
    }
    EXPECT_EQ(run({"check", folder / "project"}, impatient).status, 1);
}

TEST(ReadOnlyRootTest, getsNoMetadata) {
    const test::TempFolder folder;
    fs::create_directory(folder / "project");
    fs::permissions(folder / "project", fs::perms::owner_write, fs::perm_options::remove);
    Surroundings nobody;
    nobody.prefix = test::movedInstallation();
    nobody.prepare = test::becomeUnprivileged;
    expectFailure(run({"init", folder / "project"}, nobody), 3, {folder / "project/resources", "read-only"});
    EXPECT_EQ(readTree(folder / "project").size(), 0U);
    // Where nothing else is known of the cause, nothing else is said.
    EXPECT_THAT(run({"init", "/proc/project"}).err, MatchesRegex("[^\n]+/proc/project/[^\n]+\n"));
}

TEST_F(DamagedProjectTest, aDryRunFailsAtWhatCannotBeWrittenToo) {
    init();
    std::string deep = "T:0";
    for (int i = 1; i < 251; ++i)
        deep += "|T:" + std::to_string(i);
    const fs::path absent = folder / "absent";
    fs::create_symlink("nowhere", folder / "dangling");
    test::writeBytes(folder / "large", std::string(12'000'000, 'a'));
    const fs::path closed = folder / "closed";
    test::writeBytes(closed / "own", "");
    ASSERT_EQ(chown((closed / "own").c_str(), 65534, 65534), 0);
    fs::permissions(closed, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_exec);
    Surroundings nobody;
    nobody.prefix = test::movedInstallation();
    nobody.prepare = test::becomeUnprivileged;
    ASSERT_EQ(run({"export", root, "-o", folder / "out.xml"}).status, 0);
    const std::vector<std::pair<std::vector<std::string>, std::string>> lines{
        {{"add", root, deep}, "251 steps"},
        {{"set", root, deep, "--create", "k=v"}, "251 steps"},
        {{"set", root, "T:a", "--create", "--name", "no name", "k=v"}, "no name"},
        {{"init", closed / "new"}, closed},
        {{"import", folder / "out.xml", closed / "new"}, closed},
        {{"merge", folder / "out.xml", folder / "out.xml", folder / "out.xml", "-o", closed / "out.xml"}, closed},
        {{"export", root, "-o", closed / "new"}, closed},
        {{"report", root, "-o", closed / "new"}, closed},
        {{"export", root, "-o", closed / "own", "--replace"}, closed},
        {{"report", root, "-o", closed / "own", "--replace"}, closed},
        {{"merge", folder / "out.xml", folder / "out.xml", folder / "out.xml", "-o", absent / "new"}, absent},
        {{"export", root, "-o", absent / "new"}, absent},
        {{"report", root, "-o", absent / "new"}, absent},
        {{"export", root, "-o", folder / "dangling"}, folder / "dangling"},
        {{"set", root, "T:a", "--create", "xmlns:xml=x"}, "namespace"},
        {{"set", root, "T:a", "--create", "K@" + (folder / "large").native()}, "\"K\" of <Info> takes 12000005 bytes"}};
    const auto before = readTree(folder.std());
    for (auto [line, part] : lines) {
        const Surroundings user = part == closed ? nobody : Surroundings();
        const Outcome outcome = run(line, user);
        EXPECT_EQ(outcome.status, 3) << line[0];
        if (part != absent) {
            EXPECT_THAT(outcome.err, testing::Not(HasSubstr("No such file"))) << line[0];
        }
        line.emplace_back("--dry-run");
        expectFailure(run(line, user), 3, {part});
    }
    EXPECT_EQ(readTree(folder.std()), before);
}

TEST(ReadOnlyFileTest, isNamedByADryRunAsByTheChange) {
    Surroundings nobody;
    nobody.prefix = test::movedInstallation();
    nobody.prepare = test::becomeUnprivileged;
    const std::pair<const char*, const char*> files[] = {
        {"fixedPath", "T=a.xml"}, {"monolithic", "Project.xml"}, {"sqlite", "metadata.db"}};
    int allowed = 0;
    for (const auto& [store, name] : files) {
        const test::TempFolder folder;
        const fs::path root = folder / "project";
        ASSERT_EQ(run({"init", root, "--store", store}).status, 0);
        ASSERT_EQ(run({"set", "--create", root, "T:a", "k=1"}).status, 0);
        ASSERT_EQ(run({"set", "--create", root, "T:b", "k=1"}).status, 0);
        for (const auto& entry : fs::recursive_directory_iterator(folder.std()))
            ASSERT_EQ(chown(entry.path().c_str(), 65534, 65534), 0);
        const fs::path file = root / "resources/project" / name;
        fs::permissions(file, fs::perms::owner_read | fs::perms::others_read);
        const auto before = readTree(root);
        for (const std::vector<std::string>& line :
             std::vector<std::vector<std::string>>{{"set", root, "T:a", "k=2"}, {"remove", root, "T:a"}}) {
            std::vector<std::string> dry = line;
            dry.emplace_back("--dry-run");
            for (const auto& tried : {dry, line})
                expectFailure(run(tried, nobody), 3, {file, "read-only"});
        }
        EXPECT_EQ(readTree(root), before);
        const int status = run({"set", root, "T:b", "k=2", "--dry-run"}, nobody).status;
        EXPECT_EQ(status, run({"set", root, "T:b", "k=2"}, nobody).status) << store;
        allowed += status == 0 ? 1 : 0;
    }
    EXPECT_EQ(allowed, 1);
}

}  // namespace
