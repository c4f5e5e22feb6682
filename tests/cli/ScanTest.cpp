/// scan: what a real folder becomes in a store.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"
#include "tests/support/Git.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using test::expectFailure;
using test::expectSuccess;
using test::readContent;
using test::readTree;
using test::run;
using test::StoredPath;
using test::Surroundings;
using testing::ElementsAre;

/// Names that are not easy to keep.
const std::vector<std::string> oddNames{"with blank",
                                        "a:b|c",
                                        "...",
                                        "..hidden",
                                        "Gr\xc3\xb6\xc3\x9f\x65",
                                        "Gro\xcc\x88\xc3\x9f\x65",
                                        "latin\xe4\xff",
                                        "tab\tnewline\nescape\x1b[31m",
                                        "right\xe2\x80\xaeleft",
                                        "<&\"'>",
                                        "%41=\\",
                                        "Project.xml",
                                        "-rf",
                                        "\xf0\x9f\x94\xa7",
                                        std::string(255, 'x')};

/// A folder with a bit of everything.
void makeFolder(const fs::path& top) {
    for (const std::string& name : oddNames) {
        test::writeBytes(top / "files" / name, "12345");
        test::writeBytes(top / "folders" / name / name, "1");
    }
    fs::create_directories(top / "empty");
    fs::create_symlink("../empty", top / "files/to folder");
    fs::create_symlink("nowhere", top / "files/dangling");
    fs::create_directory_symlink("..", top / "files/loop");
    mkfifo((top / "files/fifo").c_str(), 0600);
    test::writeBytes(top / ".git/config", "");
    test::writeBytes(top / "folders/.git", "gitdir: elsewhere");
    // Paths with one text: "Folder:b|Folder:c" below "twins".
    test::writeBytes(top / "twins/b/c/first", "1");
    test::writeBytes(top / "twins/b|Folder:c/second", "22");
}

std::string expectedNode(const fs::path& file) {
    struct stat status {};
    lstat(file.c_str(), &status);
    const std::string kind = S_ISDIR(status.st_mode)   ? "folder"
                             : S_ISREG(status.st_mode) ? "file"
                             : S_ISLNK(status.st_mode) ? "symlink"
                                                       : "other";
    const std::string size = kind == "file" ? " Size=" + std::to_string(status.st_size) : "";
    return "Info Kind=" + kind + size;
}

/// What a walk through `top` says that its scan must have found, below the path `parent`; siblings sorted by name.
void walk(const fs::path& top, const pm::MetadataPath& parent, const fs::path& leftOut,
          std::vector<StoredPath>& content) {
    std::vector<std::pair<std::u16string, fs::path>> files;
    for (const fs::path& file : fs::directory_iterator(top)) {
        if (file.filename() != ".git" && file != leftOut)
            files.emplace_back(test::toPath(file.filename()).text(), file);
    }
    std::sort(files.begin(), files.end());
    for (const auto& [name, file] : files) {
        const bool isFolder = fs::is_directory(fs::symlink_status(file));
        const auto path = pm::MetadataPathBuilder().add(parent).add(isFolder ? u"Folder" : u"File", name).build();
        content.push_back({path, expectedNode(file)});
        if (isFolder)
            walk(file, path, leftOut, content);
    }
}

/// The content level by level.
std::vector<StoredPath> comparable(std::vector<StoredPath> content) {
    std::stable_sort(content.begin(), content.end(), [](const StoredPath& a, const StoredPath& b) {
        return a.path.getPath().size() < b.path.getPath().size();
    });
    return content;
}

class ScanCommandTest : public test::ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    std::unique_ptr<pm::MetadataManager> openStore() const { return pm::getMetadataManagerFor(test::toPath(root)); }
    std::vector<StoredPath> content() const { return readContent(*openStore()); }

    /// Every path with its node, level by level.
    std::vector<std::string> lines() const {
        std::vector<std::string> stored;
        for (const StoredPath& entry : comparable(content()))
            stored.push_back(host::toUtf8(entry.path.string()) + " " + entry.node);
        return stored;
    }

    void scan(const std::vector<std::string>& options, const std::string& counts) const {
        std::vector<std::string> arguments{"scan", root, folder / "source"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Surroundings remembering;
        remembering.variables["XDG_STATE_HOME"] = folder / "state";
        expectSuccess(run(arguments, remembering), counts + '\n');
    }

    void set(const std::string& path, const std::string& attribute) const {
        EXPECT_EQ(run({"set", "-q", "--create", root, path, attribute}).status, 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Stores, ScanCommandTest, testing::Values("fixedPath", "monolithic"), test::nameOfStore);

TEST_P(ScanCommandTest, givesEveryFileAndFolderOnePathAndANode) {
    init(GetParam());
    makeFolder(root);
    std::vector<StoredPath> expected;
    walk(root, {}, root / "resources/project", expected);
    const auto folders = std::count_if(expected.begin(), expected.end(), [](const StoredPath& stored) {
        return stored.node.find("Kind=folder") != std::string::npos;
    });
    const std::string counts = std::to_string(expected.size() - static_cast<std::size_t>(folders)) + " files, " +
                               std::to_string(folders) + " folders\n";

    expectSuccess(run({"scan", root}), std::to_string(expected.size()) + " added, 0 updated, 0 removed; " + counts);
    EXPECT_EQ(comparable(content()), comparable(expected));

    // The same folder under another name, in which the metadata folder has another name too.
    fs::create_directory_symlink(root, folder / "link");
    expectSuccess(run({"scan", root, folder / "link"}), "0 added, 0 updated, 0 removed; " + counts);
    EXPECT_EQ(comparable(content()), comparable(expected));
}

TEST_P(ScanCommandTest, keepsTimesAsPreciseAsTheyAreIfTheyAreWanted) {
    init(GetParam());
    const std::vector<std::pair<std::timespec, std::string>> times{
        {{0, 0}, "1970-01-01T00:00:00Z"},
        {{951825600, 250000000}, "2000-02-29T12:00:00.25Z"},
        {{4102444799, 999999999}, "2099-12-31T23:59:59.999999999Z"},
        {{-1, 1}, "1969-12-31T23:59:59.000000001Z"}};
    for (const auto& [time, text] : times) {
        test::writeBytes(folder / "source/file", "");
        const std::timespec both[] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, (folder / "source/file").c_str(), both, 0), 0);
        EXPECT_EQ(run({"scan", root, folder / "source", "--times"}).status, 0);
        EXPECT_EQ(content().front().node, "Info Kind=file ModificationTime=" + text + " Size=0");
    }
    scan({}, "0 added, 1 updated, 0 removed; 1 file, 0 folders");
    EXPECT_EQ(content().front().node, "Info Kind=file Size=0");
    set("File:file", "ModificationTime=in spring");
    scan({}, "0 added, 0 updated, 0 removed; 1 file, 0 folders");
}

/// What is gone goes, but for what people have written there, which stays and is marked until the file is back.
TEST_P(ScanCommandTest, againFollowsTheDiskAndKeepsWhatOthersAdded) {
    init(GetParam());
    for (const char* const file :
         {"changes", "becomes link", "goes/alone", "goes/with/all", "goes/noted", "stays/file"})
        test::writeBytes(folder / "source" / file, "1");
    scan({}, "9 added, 0 updated, 0 removed; 6 files, 3 folders");
    const auto path = [](const std::vector<pm::PathElement>& elements) { return pm::MetadataPath(elements); };
    const auto changes = path({{u"File", u"changes"}});
    {
        const auto store = openStore();
        const auto node = store->getNode(changes);
        node->put(u"Owner", u"somebody");
        node->createChildNode(u"Note").put(u"Text", u"kept");
        store->setNode(changes, *node);
        for (const auto& foreign : {path({{u"Folder", u"goes"}, {u"Folder", u"with"}, {u"Label", u"x"}}),
                                    path({{u"Folder", u"stays"}, {u"Label", u"x"}, {u"File", u"not on disk"}})})
            store->setNode(foreign, pm::MetadataNodeSpecification());
    }
    set("Folder:goes|File:noted", "By=me");
    set("File:planned", "By=me");
    test::writeBytes(folder / "source/changes", "12");
    test::writeBytes(folder / "source/added", "");
    fs::remove(folder / "source/becomes link");
    fs::create_symlink("added", folder / "source/becomes link");
    fs::rename(folder / "source/goes", folder / "away");
    const auto before = readTree(root);
    scan({"--dry-run", "-v"}, R"(+ File:added
~ File:becomes link
~ File:changes
~ Folder:goes
~ Folder:goes|File:noted
~ Folder:goes|Folder:with
~ File:planned
- Folder:goes|File:alone
- Folder:goes|Folder:with|File:all
? Folder:goes
? Folder:goes|File:noted
? Folder:goes|Folder:with
? File:planned
Not done: 1 added, 6 updated, 2 removed, 4 missing; 4 files, 1 folder)");
    EXPECT_EQ(readTree(root), before);
    scan({}, "1 added, 6 updated, 2 removed, 4 missing; 4 files, 1 folder");
    const std::vector<std::string> away{"File:added Info Kind=file Size=0",
                                        "File:becomes link Info Kind=symlink",
                                        "File:changes Info Kind=file Owner=somebody Size=2 (Note Text=kept)",
                                        "Folder:goes Info Kind=folder Missing=true",
                                        "Folder:stays Info Kind=folder",
                                        "File:planned Info By=me Missing=true",
                                        "Folder:goes|File:noted Info By=me Kind=file Missing=true Size=1",
                                        "Folder:goes|Folder:with Info Kind=folder Missing=true",
                                        "Folder:stays|File:file Info Kind=file Size=1",
                                        "Folder:stays|Label:x ",
                                        "Folder:goes|Folder:with|Label:x Info",
                                        "Folder:stays|Label:x|File:not on disk Info"};
    EXPECT_EQ(lines(), away);
    scan({}, "0 added, 0 updated, 0 removed, 4 missing; 4 files, 1 folder");

    fs::rename(folder / "away", folder / "source/goes");
    scan({}, "2 added, 3 updated, 0 removed, 1 missing; 7 files, 3 folders");
    EXPECT_EQ(lines().at(6), "Folder:goes|File:alone Info Kind=file Size=1");
    EXPECT_EQ(lines().at(7), "Folder:goes|File:noted Info By=me Kind=file Size=1");
    fs::remove_all(folder / "source/goes");
    scan({"--prune"}, "0 added, 0 updated, 7 removed; 4 files, 1 folder");
    EXPECT_THAT(lines(), ElementsAre(away[0], away[1], away[2], away[4], away[8], away[9], away[11]));
}

TEST_P(ScanCommandTest, leavesAnAttributeOfSomebodysOwnThatHasTheNameOfTheMark) {
    init(GetParam());
    test::writeBytes(folder / "source/file", "1");
    scan({}, "1 added, 0 updated, 0 removed; 1 file, 0 folders");
    for (const std::string value : {"pages 3 and 4", ""}) {
        set("File:file", "Missing=" + value);
        fs::rename(folder / "source/file", folder / "file");
        for (const std::string marks : {"? File:file\n", ""}) {
            scan(marks.empty() ? std::vector<std::string>() : std::vector<std::string>{"-v"},
                 marks + "0 added, 0 updated, 0 removed, 1 missing; 0 files, 0 folders");
        }
        fs::rename(folder / "file", folder / "source/file");
        scan({}, "0 added, 0 updated, 0 removed; 1 file, 0 folders");
        expectSuccess(run({"get", root, "File:file", "Missing"}), value + '\n');
    }
}

TEST_P(ScanCommandTest, againWritesNothingWhenNothingChanged) {
    init(GetParam());
    makeFolder(folder / "source");
    ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);
    const auto before = readTree(root);
    std::map<std::string, fs::file_time_type> times;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        times[entry.path()] = entry.last_write_time();
    ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);
    EXPECT_EQ(readTree(root), before);
    for (const auto& [file, time] : times)
        EXPECT_EQ(fs::last_write_time(file), time) << file;
}

/// A file keeps its node where it goes, if it is certain that it is the same one.
TEST_P(ScanCommandTest, knowsFilesAgainThatHaveMoved) {
    init(GetParam());
    const fs::path source = folder / "source";
    for (const char* const file : {"plain", "old/below/file", "old/edited", "replaced", "copied"})
        test::writeBytes(source / file, file);
    scan({}, "7 added, 0 updated, 0 removed; 5 files, 2 folders");
    for (const char* const path : {"File:plain", "Folder:old|Folder:below|File:file", "Folder:old|File:edited",
                                   "Folder:old|File:never there", "Folder:old|Label:x", "File:replaced", "File:copied"})
        set(path, "By=" + std::string(path));
    fs::rename(source / "plain", source / "renamed");
    const auto time = fs::last_write_time(source / "old");
    fs::rename(source / "old", source / "new");
    fs::remove(source / "new/edited");
    test::writeBytes(source / "new/edited", "as an editor saves it");
    fs::last_write_time(source / "new", time);  // where the time when a folder was made is not known
    test::writeBytes(source / "holds the number", "");
    fs::remove(source / "replaced");
    test::writeBytes(source / "other", "replaced");  // may well get the same identity
    fs::create_directory(source / "sub");
    fs::copy(source / "copied", source / "sub/copied");
    fs::last_write_time(source / "sub/copied", fs::last_write_time(source / "copied"));
    fs::remove(source / "copied");
    scan({}, "3 added, 1 updated, 0 removed, 8 moved, 2 missing; 6 files, 3 folders");
    EXPECT_THAT(lines(),
                ElementsAre("File:holds the number Info Kind=file Size=0", "Folder:new Info Kind=folder",
                            "File:other Info Kind=file Size=8", "File:renamed Info By=File:plain Kind=file Size=5",
                            "File:replaced Info By=File:replaced Kind=file Missing=true Size=8",
                            "Folder:sub Info Kind=folder", "Folder:new|Folder:below Info Kind=folder",
                            "Folder:new|File:edited Info By=Folder:old|File:edited Kind=file Size=21",
                            "Folder:new|File:never there Info By=Folder:old|File:never there Missing=true",
                            "Folder:new|Label:x Info By=Folder:old|Label:x",
                            "Folder:sub|File:copied Info By=File:copied Kind=file Size=6",
                            "Folder:new|Folder:below|File:file Info By=Folder:old|Folder:below|File:file Kind=file "
                            "Size=14"));
    // Without what was remembered, nothing is guessed, and nothing lost.
    fs::rename(source / "renamed", source / "renamed again");
    fs::remove_all(folder / "state");
    scan({}, "1 added, 1 updated, 0 removed, 3 missing; 6 files, 3 folders");
    EXPECT_THAT(lines(), testing::Contains("File:renamed Info By=File:plain Kind=file Missing=true Size=5"));
    // What cannot be remembered is told.
    test::writeBytes(folder / "no folder", "");
    Surroundings forgetful;
    forgetful.variables["XDG_STATE_HOME"] = folder / "no folder";
    const auto outcome = run({"scan", root, source}, forgetful);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err,
                testing::MatchesRegex("project-metadata: [^\n]+not be known again[^\n]+no folder[^\n]+\n"));
}

using ScanRefusalTest = test::ProjectFixture;
using ScanPartTest = test::ProjectFixture;

TEST_F(ScanPartTest, touchesOnlyWhatIsBelowTheFolder) {
    init();
    for (const char* const file : {"a/b/c/file", "a/other", "z/file"})
        test::writeBytes(root / file, "1");
    Surroundings inside;
    inside.folder = root / "a";
    const auto tree = [&] { return run({"tree", "-q", root}).out.substr(root.native().size() + 1); };
    expectSuccess(run({"scan", "b", "-q"}, inside), "");
    EXPECT_EQ(tree(), R"(└── Folder:a
    └── Folder:b
        └── Folder:c
            └── File:file
)");
    expectSuccess(run({"scan", "-q", "-C", root, root / "z"}), "");
    EXPECT_EQ(run({"set", "-q", root, "Folder:z|File:file", "By=me"}).status, 0);
    fs::remove_all(root / "z");
    fs::remove_all(root / "a/b/c");
    expectSuccess(run({"scan", root, root / "a/b"}), "0 added, 0 updated, 2 removed; 0 files, 0 folders\n");
    EXPECT_EQ(tree(), R"(├── Folder:a
│   └── Folder:b
└── Folder:z
    └── File:file
)");
    EXPECT_EQ(run({"get", root, "Folder:z|File:file", "Missing"}).status, 1);
    expectFailure(run({"scan", root / "a" / "absent"}), 4, {root / "a/absent"});
}

/// What is left out is neither added nor taken for gone.
TEST_F(ScanPartTest, leavesOutWhatIsExcludedAndWhatGitIgnores) {
    init();
    for (const char* const file :
         {"src/a.c", "src/a.o", "src/gen/b.o", "build/x/y", "kept.o", "inner/build/z", "inner/i"})
        test::writeBytes(root / file, "1");
    const auto paths = [&] {
        std::string text = run({"find", root}).out;
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text;
    };
    for (const std::string place : {"/src/build", "build/", "./build", ""})
        expectFailure(run({"scan", root, "--exclude", place}), 2, {'"' + place + '"', "a place in FOLDER"});
    const std::vector<std::string> excluding{"scan",   "-q",        root,    "--exclude", "*.o",   "--exclude",
                                             "src/g*", "--exclude", "build", "--exclude", "Folder"};
    expectSuccess(run(excluding), "");
    const std::string all = paths();
    EXPECT_EQ(all, "Folder:inner Folder:inner|File:i Folder:resources Folder:src Folder:src|File:a.c ");
    EXPECT_EQ(run({"set", "-q", "--create", root, "File:kept.o", "By=me"}).status, 0);
    expectSuccess(run(excluding), "");
    EXPECT_EQ(run({"get", root, "File:kept.o", "Missing"}).status, 1);
    EXPECT_EQ(run({"remove", "-q", root, "File:kept.o"}).status, 0);

    test::runGit(root, "init -q");
    test::runGit(root / "inner", "init -q");
    test::writeBytes(root / ".gitignore", "*.o\n/build/\n");
    test::writeBytes(root / "inner/.gitignore", "build\n");
    test::runGit(root, "add -f kept.o");
    // A program that git would run if it heeded this configuration.
    test::writeBytes(folder / "monitor", "#!/bin/sh\ntouch '" + (folder / "was run").native() + "'\n");
    fs::permissions(folder / "monitor", fs::perms::all);
    for (const fs::path& place : {root, root / "inner"})
        test::runGit(place, "config core.fsmonitor '" + (folder / "monitor").native() + "'");
    Surroundings hook;
    hook.variables = {{"GIT_DIR", ".git"}, {"GIT_INDEX_FILE", ".git/index"}};
    expectSuccess(run({"scan", root}, hook), "3 added, 0 updated, 0 removed; 5 files, 3 folders\n");
    EXPECT_EQ(paths(),
              "File:.gitignore Folder:inner Folder:inner|File:.gitignore Folder:inner|File:i File:kept.o "
              "Folder:resources Folder:src Folder:src|File:a.c ");
    EXPECT_FALSE(fs::exists(folder / "was run"));
    expectFailure(run({"scan", root, root / "build"}), 2, {root / "build", "--ignored"});
    expectSuccess(run({"scan", root, "--ignored"}), "8 added, 0 updated, 0 removed; 9 files, 7 folders\n");

    fs::create_directories(root / "lost/.git");
    expectSuccess(run({"scan", root, "-q"}), "");
    Surroundings without;
    without.variables["PATH"] = folder / "nothing";
    expectFailure(run({"scan", root}, without), 3, {"git", "--ignored"});
    expectSuccess(run({"scan", "-q", root, "--ignored"}, without), "");
}

TEST_F(ScanRefusalTest, whatCannotBeReadStaysAsItIsAndIsTold) {
    init();
    makeFolder(folder / "source");
    ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);
    const auto below = [&] { return run({"tree", root, "Folder:folders", "--attributes"}).out; };
    const std::string before = below();
    test::writeBytes(folder / "source/added", "");
    fs::remove(folder / "source/files/fifo");
    Surroundings nobody;
    nobody.prefix = test::movedInstallation();
    nobody.prepare = test::becomeUnprivileged;
    fs::permissions(root, fs::perms::all);
    for (const auto& entry : fs::recursive_directory_iterator(root))
        fs::permissions(entry.path(), fs::perms::all);
    // One that cannot be listed, and one in which nothing can be looked at.
    for (const fs::perms rights : {fs::perms::none, fs::perms::others_read}) {
        fs::permissions(folder / "source/folders", rights);
        const auto outcome = run({"scan", root, folder / "source", "--json"}, nobody);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.err,
                    testing::MatchesRegex("[^\n]+source/folders\"[^\n]+ermission denied[^\n]+stays as it is\n"));
        EXPECT_EQ(nlohmann::json::parse(outcome.out).at("unreadable"), 1);
        EXPECT_EQ(below(), before);
    }
    EXPECT_EQ(run({"get", root, "File:added", "Size"}).out, "0\n");
    EXPECT_EQ(run({"get", root, "Folder:files|File:fifo", "Kind"}).status, 3);
    fs::permissions(folder / "source", fs::perms::none);
    expectFailure(run({"scan", root, folder / "source"}, nobody), 3, {folder / "source", "ermission denied"});
    fs::permissions(folder / "source", fs::perms::all);
    fs::permissions(folder / "source/folders", fs::perms::all);
}

TEST_F(ScanRefusalTest, whatIsNoFolderAndTheMetadataItself) {
    init();
    test::writeBytes(folder / "file", "");
    const auto before = readTree(root);
    for (const std::string& path : {(folder / "absent").native(), std::string()})
        expectFailure(run({"scan", root, path}), 3, {'"' + path + '"', "does not exist"});
    expectFailure(run({"scan", root, folder / "file"}), 3, {folder / "file", "Not a directory"});
    test::runGit(folder.std(), "init -q");
    EXPECT_THAT(run({"scan", root, folder / "file"}).err, testing::Not(testing::HasSubstr("git")));
    fs::remove_all(folder / ".git");
    fs::create_directory(coreFile.parent_path() / "below");
    for (const fs::path& own : {coreFile.parent_path(), coreFile.parent_path() / "below"})
        expectFailure(run({"scan", root, own}), 2, {own});
    fs::remove(coreFile.parent_path() / "below");
    for (const fs::path& internals : {root / ".git/hooks", root / "sub/.git", folder / "elsewhere/.git"}) {
        fs::create_directories(internals);
        expectFailure(run({"scan", root, internals}), 2, {internals, "\".git\""});
    }
    fs::remove_all(root / ".git");
    fs::remove_all(root / "sub");
    EXPECT_EQ(readTree(root), before);
}

TEST_F(ScanRefusalTest, treesTooDeepToBeReadBack) {
    fs::path deep = folder / "source";
    for (int i = 0; i < 300; ++i)
        deep /= "d";
    fs::create_directories(deep);
    init("monolithic");
    const auto before = readTree(root);
    expectFailure(run({"scan", root, folder / "source"}), 3, {coreFile, "251 steps"});
    EXPECT_EQ(readTree(root), before);

    // The limit is the same for all stores, so what one of them takes can be exported.
    fs::create_directory(folder / "other");
    ASSERT_EQ(run({"init", folder / "other"}).status, 0);
    expectFailure(run({"scan", folder / "other", folder / "source"}), 3, {"251 steps"});
    for (int i = 0; i < 50; ++i)
        deep = deep.parent_path();
    fs::remove_all(deep / "d");
    expectSuccess(run({"scan", folder / "other", folder / "source"}),
                  "250 added, 0 updated, 0 removed; 0 files, 250 folders\n");
    EXPECT_EQ(run({"export", folder / "other", "-o", folder / "out.xml"}).status, 0);
}

}  // namespace
