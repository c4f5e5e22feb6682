/// What belongs to no single command: help, usage, output, settings and plug-ins.
#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"
#include "tests/support/Git.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectFailure;
using test::expectSuccess;
using test::Outcome;
using test::run;
using test::Surroundings;
using testing::HasSubstr;
using testing::MatchesRegex;

using CommandLineTest = test::ProjectFixture;
using CommandPluginsTest = test::ProjectFixture;

TEST_F(CommandLineTest, helpDescribesEveryCommandAndItsArguments) {
    const Outcome overview = run({"--help"});
    EXPECT_EQ(overview.status, 0);
    const std::map<std::string, std::string> usage{
        {"conform", " [OPTIONS] BUNDLE"}, {"init", " [OPTIONS] [ROOT]"},          {"locate", " [OPTIONS] [ROOT]"},
        {"stores", " [OPTIONS]"},         {"scan", " [OPTIONS] [ROOT] [FOLDER]"}, {"tree", " [OPTIONS] [ROOT] [PATH]"}};
    for (const auto& [command, arguments] : usage) {
        EXPECT_THAT(overview.out, HasSubstr("\n  " + command));
        std::string line = "Usage: project-metadata ";
        line.append(command).append(arguments).append("\n");
        const Outcome help = run({command, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_THAT(help.out, HasSubstr(line));
    }
}

TEST_F(CommandLineTest, versionSaysWhichServiceFrameworkIsUsed) {
    EXPECT_THAT(run({"--version"}).out, MatchesRegex("project-metadata [0-9.]+ \\(service framework: .*"
                                                     "CppMicroServices.*\\)\n"));
}

TEST_F(CommandLineTest, wrongUsageIsExplainedInOneSentence) {
    const std::vector<std::vector<std::string>> lines{
        {}, {"grow"}, {"--grow"}, {"get", root}, {"conform"}, {"locate", root, "more"}, {"init", root, "--store"}};
    for (const auto& line : lines)
        expectFailure(run(line), 2, {"--help"});
    expectFailure(run({"gr\x1b[31mow\xff\n"}), 2, {"gr\\u001B[31mow\\xFF\\n"});
}

TEST_F(CommandLineTest, whatIsMisspeltIsAnsweredWithWhatMayBeMeant) {
    init();
    ASSERT_EQ(run({"set", root, "Folder:sources|File:main.c", "--create", "K=V"}).status, 0);
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"tre"}, "did you mean \"tree\"?"},
        {{"exprot"}, "did you mean \"export\"?"},
        {{"tree", root, "--atributes"}, "no option \"--atributes\"; did you mean \"--attributes\"?"},
        {{"export", root, "-o", "x", "--pth=x"}, "did you mean \"--path\"?"},
        {{"tree", root, "--colour=never"}, "did you mean \"--color\"?"},
        {{"show", root, "Folder:soruces|File:main.c"}, "is \"/\"; did you mean \"Folder:sources\"?"},
        {{"get", root, "Folder:sources|File:Main.C", "K"}, "is \"Folder:sources\"; did you mean \"File:main.c\"?"},
        {{"set", root, "Folder:soruces", "K=V"}, "--create adds it; did you mean \"Folder:sources\"?"},
        {{"unset", root, "Folder:soruces", "K"}, "did you mean \"Folder:sources\"?"},
        {{"move", root, "Folder:soruces", "F:x"}, "did you mean \"Folder:sources\"?"},
        {{"copy", root, "Folder:sources", "Folder:soruces|F:x"}, "did you mean \"Folder:sources\"?"},
        {{"remove", root, "Folder:soruces"}, "did you mean \"Folder:sources\"?"},
        {{"add", root, "F:x", "--before", "Folder:soruces"}, "did you mean \"Folder:sources\"?"},
        {{"find", root, "--or", "Owner=Ann", "X=1"}, "a condition is written --attribute \"X=1\""}};
    for (const auto& [line, answer] : cases)
        EXPECT_THAT(run(line).err, HasSubstr(answer));
    for (const std::vector<std::string>& line :
         {std::vector<std::string>{"frobnicate"}, {"tree", root, "--zzz"}, {"show", root, "Label:x"}})
        EXPECT_THAT(run(line).err, testing::Not(HasSubstr("did you mean")));
}

TEST_F(CommandLineTest, rootIsFoundFromTheCurrentFolderUpwards) {
    init();
    Surroundings below;
    below.folder = root / "src/deep";
    fs::create_directories(below.folder);
    expectSuccess(run({"tree"}, below), root.native() + "\n");
    fs::create_directory(folder / "other");
    ASSERT_EQ(run({"init", folder / "other"}).status, 0);
    expectSuccess(run({"tree", folder / "other"}, below), (folder / "other").native() + "\n");
    expectSuccess(run({"tree", "-C", folder / "other"}, below), (folder / "other").native() + "\n");
    expectFailure(run({"tree", "deep"}, below), 2, {"\"deep\" is no path"});
}

/// Of a command that would take another project than the one that is named, the user would learn too late.
TEST_F(CommandLineTest, theOptionForTheRootIsHeededByAllCommandsOrRefused) {
    Surroundings elsewhere;
    elsewhere.folder = folder / "elsewhere";
    fs::create_directory(elsewhere.folder);
    const auto here = [&](std::vector<std::string> line) {
        line.insert(line.end(), {"-C", root});
        return run(line, elsewhere);
    };
    EXPECT_EQ(here({"init", "-q"}).status, 0);
    EXPECT_TRUE(fs::exists(coreFile));
    test::runGit(root, "init -q");
    EXPECT_EQ(here({"git-setup", "-q"}).status, 0);
    EXPECT_THAT(test::readBytes(root / ".git/config"), HasSubstr("project-metadata"));
    const fs::path other = folder / "other";
    fs::copy(root, other, fs::copy_options::recursive);
    EXPECT_EQ(run({"set", "-q", "--create", other, "T:a", "k=v"}).status, 0);
    EXPECT_EQ(here({"diff", other, "--name-only"}).out, "T:a\n");
    EXPECT_EQ(here({"diff", other, "T:a", "--name-only"}).out, "T:a\n");
    EXPECT_EQ(here({"merge", root, other}).status, 0);
    EXPECT_EQ(here({"get", "T:a", "k"}).out, "v\n");
    EXPECT_THAT(here({"textconv"}).out, HasSubstr("T:a\n    node Info\n"));
    for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{{"init", root},
                                                                                      {"git-setup", root},
                                                                                      {"diff", root, other, "/"},
                                                                                      {"diff"},
                                                                                      {"merge", root},
                                                                                      {"merge", root, other, root},
                                                                                      {"textconv", "file"},
                                                                                      {"stores"},
                                                                                      {"conform", "file"},
                                                                                      {"diff", other, ""}})
        expectFailure(here(line), 2, {});
    EXPECT_TRUE(fs::is_empty(elsewhere.folder));
    // An empty text, as of a variable that is not set, is no name of the current folder.
    for (const std::string command : {"check", "git-setup", "tree", "init"})
        EXPECT_GE(run({command, "-C", ""}, {{}, root, {}, {}}).status, 3) << command;
}

TEST_F(CommandLineTest, storesNamesTheDefault) {
    const Outcome stores = run({"stores"});
    EXPECT_EQ(stores.status, 0);
    EXPECT_THAT(
        stores.out,
        MatchesRegex("fixedPath \\(default\\)  [^\n]+\nmonolithic           [^\n]+\n(postgresql           [^\n]+\n)?"
                     "(sqlite               [^\n]+\n)?"));

    Surroundings surroundings;
    surroundings.variables["PROJECT_METADATA_SETTINGS"] = folder / "settings.ini";
    test::writeBytes(folder / "settings.ini", "[korvex.project.creation]\nDefaultMetadataManager = monolithic\n");
    EXPECT_THAT(run({"stores"}, surroundings).out, HasSubstr("monolithic (default)"));
    const auto list = nlohmann::json::parse(run({"stores", "--json"}, surroundings).out);
    EXPECT_EQ(list[0]["name"], "fixedPath");
    EXPECT_EQ(list[0]["default"], false);
    EXPECT_EQ(list[1]["default"], true);
}

TEST_F(CommandLineTest, settingsThatCannotBeReadAreNamedWithTheLine) {
    Surroundings surroundings;
    surroundings.variables["PROJECT_METADATA_SETTINGS"] = folder / "settings.ini";
    test::writeBytes(folder / "settings.ini", "[korvex.project.creation]\nnonsense\n");
    expectFailure(run({"init", root}, surroundings), 3, {folder / "settings.ini", "line 2"});
    EXPECT_EQ(test::readTree(root).size(), 0U);
}

/// Replaces the standard output of the command.
Surroundings withOutputTo(const std::string& file) {
    Surroundings surroundings;
    surroundings.prepare = [file] { dup2(open(file.c_str(), O_WRONLY), STDOUT_FILENO); };
    return surroundings;
}

TEST_F(CommandLineTest, outputThatCannotBeWrittenIsAnError) {
    init();
    for (const char* command : {"tree", "locate"})
        expectFailure(run({command, root}, withOutputTo("/dev/full")), 3, {"standard output", "No space left"});
    expectFailure(run({"--help"}, withOutputTo("/dev/full")), 3, {"standard output"});
}

TEST_F(CommandLineTest, outputThatNobodyReadsEndsTheCommandQuietly) {
    init();
    Surroundings surroundings;
    surroundings.prepare = [] {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) == 0 && dup2(ends[1], STDOUT_FILENO) >= 0)
            close(ends[0]), close(ends[1]);
    };
    expectSuccess(run({"tree", root}, surroundings), "");
    // What was found, and what was asked for, stays the same; also if the first of many lines shows that nobody reads.
    const fs::path other = folder / "other";
    std::string commands, damages;
    for (int i = 0; i < 200; ++i)
        commands += "set --create T:" + std::to_string(i) + " K=" + std::string(100, 'x') + '\n';
    fs::copy(root, other, fs::copy_options::recursive);
    EXPECT_EQ(run({"edit", root, "-"}, test::withInput(commands)).status, 0);
    EXPECT_EQ(run({"diff", root, other}, surroundings).status, 1);
    std::replace(commands.begin(), commands.end(), 'x', 'y');
    EXPECT_EQ(run({"edit", other, "-"}, test::withInput(commands)).status, 0);
    const fs::path base = folder / "base.xml";
    test::writeBytes(base, "<Project MetadataType=\"monolithic\"/>");
    EXPECT_EQ(run({"export", root, "-o", folder / "ours.xml"}).status, 0);
    EXPECT_EQ(run({"export", other, "-o", folder / "theirs.xml"}).status, 0);
    EXPECT_EQ(run({"merge", base, folder / "ours.xml", folder / "theirs.xml"}, surroundings).status, 1);
    for (int i = 0; i < 200; ++i)
        test::writeBytes(coreFile.parent_path() / ("T=" + std::to_string(i) + ".xml"), "");
    EXPECT_EQ(run({"check", root}, surroundings).status, 1);
    EXPECT_EQ(run({"check", root, "--repair"}, surroundings).status, 0);
    EXPECT_EQ(run({"check", root}).status, 0);
}

TEST_F(CommandPluginsTest, areFoundWhereverTheInstallationIsMoved) {
    Surroundings moved;
    moved.prefix = test::movedInstallation();
    EXPECT_EQ(run({"stores"}, moved).out, run({"stores"}).out);
    EXPECT_EQ(run({"init", root}, moved).status, 0);
}

TEST_F(CommandPluginsTest, noneIsAnErrorThatSaysSo) {
    Surroundings surroundings;
    surroundings.prefix = folder / "incomplete";
    fs::copy(test::movedInstallation(), surroundings.prefix,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const fs::path plugins = surroundings.prefix / CLI_TEST_PLUGIN_FOLDER;
    fs::remove_all(plugins);
    surroundings.variables["PROJECT_METADATA_PREFIX"] = folder / "empty";
    expectFailure(run({"stores"}, surroundings), 3,
                  {"There are no metadata stores", "looked for in \"" + plugins.native() + '"', folder / "empty"});
    expectFailure(run({"init", root}, surroundings), 3, {"no store \"fixedPath\"", "there are: none"});

    init();
    expectFailure(run({"tree", root}, surroundings), 3, {"\"fixedPath\"", coreFile});
}

TEST_F(CommandPluginsTest, oneThatCannotBeLoadedOrStartedIsNamed) {
    Surroundings surroundings;
    surroundings.variables["PROJECT_METADATA_PREFIX"] = folder / "prefix";
    const fs::path plugins = folder / "prefix" / CLI_TEST_PLUGIN_FOLDER;
    fs::create_directories(plugins);

    test::writeBytes(plugins / "text.so", "This is no shared object.\n");
    expectFailure(run({"stores"}, surroundings), 3, {plugins / "text.so"});
    fs::remove(plugins / "text.so");

    fs::copy(CLI_TEST_PLUGIN, plugins / "throwing.so");
    surroundings.variables["METADATA_TEST_PLUGIN"] = "failing";
    expectFailure(run({"init", root}, surroundings), 3, {"throwing.so", "failing on purpose"});
    EXPECT_EQ(test::readTree(root).size(), 0U);
}

}  // namespace
