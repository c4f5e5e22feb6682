/// scan: what a real folder becomes in a store.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <regex>

#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"

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
    return "Info Kind=" + kind + " ModificationTime=*" + size;
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

/// The content without the times, level by level as a store gives it.
std::vector<StoredPath> comparable(std::vector<StoredPath> content) {
    for (StoredPath& stored : content) {
        stored.node = std::regex_replace(stored.node, std::regex("ModificationTime=[^ ]+"), "ModificationTime=*");
    }
    std::stable_sort(content.begin(), content.end(), [](const StoredPath& a, const StoredPath& b) {
        return a.path.getPath().size() < b.path.getPath().size();
    });
    return content;
}

class ScanCommandTest : public test::ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    std::unique_ptr<pm::MetadataManager> openStore() const { return pm::getMetadataManagerFor(test::toPath(root)); }
    std::vector<StoredPath> content() const { return readContent(*openStore()); }
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

TEST_P(ScanCommandTest, keepsTimesAsPreciseAsTheyAre) {
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
        EXPECT_EQ(run({"scan", root, folder / "source"}).status, 0);
        EXPECT_EQ(content().front().node, "Info Kind=file ModificationTime=" + text + " Size=0");
    }
}

TEST_P(ScanCommandTest, againFollowsTheDiskAndKeepsWhatOthersAdded) {
    init(GetParam());
    test::writeBytes(folder / "source/changes", "1");
    test::writeBytes(folder / "source/becomes link", "1");
    test::writeBytes(folder / "source/goes/with/all", "1");
    test::writeBytes(folder / "source/stays/file", "1");
    ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);

    const auto path = [](const std::vector<pm::PathElement>& elements) { return pm::MetadataPath(elements); };
    const auto changes = path({{u"File", u"changes"}});
    {
        const auto store = openStore();
        const auto node = store->getNode(changes);
        node->put(u"Owner", u"somebody");
        node->createChildNode(u"Note").put(u"Text", u"kept");
        store->setNode(changes, *node);
        for (const auto& foreign : {path({{u"Folder", u"goes"}, {u"Label", u"x"}}),
                                    path({{u"Folder", u"stays"}, {u"Label", u"x"}, {u"File", u"not on disk"}})})
            store->setNode(foreign, pm::MetadataNodeSpecification());
    }
    test::writeBytes(folder / "source/changes", "12");
    test::writeBytes(folder / "source/added", "");
    fs::remove(folder / "source/becomes link");
    fs::create_symlink("added", folder / "source/becomes link");
    fs::remove_all(folder / "source/goes");
    expectSuccess(run({"scan", root, folder / "source"}), "1 added, 2 updated, 4 removed; 4 files, 1 folder\n");

    std::vector<std::string> stored;
    for (const StoredPath& entry : comparable(content()))
        stored.push_back(host::toUtf8(entry.path.string()) + " " + entry.node);
    EXPECT_THAT(stored,
                ElementsAre("File:added Info Kind=file ModificationTime=* Size=0",
                            "File:becomes link Info Kind=symlink ModificationTime=*",
                            "File:changes Info Kind=file ModificationTime=* Owner=somebody Size=2 (Note Text=kept)",
                            "Folder:stays Info Kind=folder ModificationTime=*",
                            "Folder:stays|File:file Info Kind=file ModificationTime=* Size=1", "Folder:stays|Label:x ",
                            "Folder:stays|Label:x|File:not on disk Info"));
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

using ScanRefusalTest = test::ProjectFixture;

TEST_F(ScanRefusalTest, foldersThatCannotBeListedBeforeChangingAnything) {
    init();
    makeFolder(folder / "source");
    ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);
    test::writeBytes(folder / "source/added", "");
    fs::permissions(folder / "source/folders", fs::perms::none);
    const auto before = readTree(root);

    fs::permissions(root, fs::perms::all);
    Surroundings nobody;
    nobody.prefix = test::movedInstallation();
    nobody.prepare = test::becomeUnprivileged;
    expectFailure(run({"scan", root, folder / "source"}, nobody), 3, {folder / "source/folders", "ermission denied"});
    EXPECT_EQ(readTree(root), before);
    fs::permissions(folder / "source/folders", fs::perms::all);
}

TEST_F(ScanRefusalTest, whatIsNoFolderAndTheMetadataItself) {
    init();
    test::writeBytes(folder / "file", "");
    const auto before = readTree(root);
    for (const std::string& path : {(folder / "absent").native(), std::string()})
        expectFailure(run({"scan", root, path}), 3, {'"' + path + '"', "does not exist"});
    expectFailure(run({"scan", root, folder / "file"}), 3, {folder / "file", "Not a directory"});
    expectFailure(run({"scan", root, coreFile.parent_path()}), 2, {coreFile.parent_path()});
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
    EXPECT_EQ(run({"export", folder / "other", folder / "out.xml"}).status, 0);
}

}  // namespace
