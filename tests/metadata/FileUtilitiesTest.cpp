/// The helpers for files and folders, and what they do about those that are read-only.
#include "project/metadata/FileUtilities.hpp"

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

class FileUtilitiesTest : public testing::Test {
protected:
    host::Path at(const std::u16string& relative) const { return folder.path() / relative; }

    host::Path makeFile(const std::u16string& relative) const {
        writeBytes(toStd(at(relative)), "content");
        return at(relative);
    }

    const TempFolder folder;
};

}  // namespace

TEST_F(FileUtilitiesTest, aFolderIsMadeWithAllAboveItAlsoInAReadOnlyOneIfTheSettingsAllowIt) {
    const UnprivilegedUser user;
    makeFile(u"file");
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { makeFolder(at(u"file/below")); }),
              (Texts{at(u"file/below").text(), messageOfNested}));
    makeFolder(at(u"a/locked"));
    protect(folder / "a/locked");
    for (const char16_t* value : {u"no", u"Yes", u""}) {
        const SettingsOverride settings(makeWritable(value));
        EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { makeFolder(at(u"a/locked/b")); }),
                  (Texts{at(u"a/locked/b").text(), messageOfNested}));
    }
    const SettingsOverride settings(makeWritable(u"yes"));
    EXPECT_EQ(raised<FailedToMakeMetadataWritable>([&] { makeFolder(at(u"a/locked/b/c")); }),
              (Texts{at(u"a/locked/b").text(), messageOfNested}))
        << "it is always the parent that is made writable, also one that is not there";
    makeFolder(at(u"a/locked/b"));
    EXPECT_TRUE(is_directory(folder / "a/locked/b"));
}

TEST_F(FileUtilitiesTest, aSecondAttemptThatFailsIsTheFaultOfTheReadOnlyFolderWhateverItsReason) {
    struct Settings : host::SettingsGroup, std::enable_shared_from_this<Settings> {
        std::shared_ptr<const host::SettingsGroup> getGroup(const std::string&) const override {
            return shared_from_this();
        }
        // Between the two attempts.
        std::u16string getText(const std::string&, const std::string&) const override {
            std::filesystem::remove(locked);
            writeBytes(locked, "now a file");
            return u"yes";
        }
        std::filesystem::path locked;
    };
    const UnprivilegedUser user;
    const auto settings = std::make_shared<Settings>();
    settings->locked = folder / "locked";
    const SettingsOverride override(settings);
    std::filesystem::create_directory(folder / "locked");
    protect(folder / "locked");
    EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { makeFolder(at(u"locked/b")); }),
              (Texts{at(u"locked/b").text(), messageOfNested}));
}

TEST_F(FileUtilitiesTest, listsEverythingDirectlyInAFolder) {
    const Paths files{makeFile(u"a"), makeFile(u".hidden"), makeFile(toPath("no\xFFutf8").text())};
    std::filesystem::create_symlink("nowhere", folder / "link");
    makeFile(u"sub/below");
    EXPECT_THAT(listChildFiles(folder.path()),
                testing::UnorderedElementsAre(files[0], files[1], files[2], at(u"link"), at(u"sub")));
    EXPECT_EQ(raised<ListChildFilesFailure>([&] { listChildFiles(files[0]); }),
              (Texts{files[0].text(), messageOfNested}));
}

TEST_F(FileUtilitiesTest, deletesInAscendingOrderUntilTheFirstError) {
    const UnprivilegedUser user;
    const Paths files{makeFile(u"c"), makeFile(u"b/locked"), makeFile(u"a/below"), at(u"a"), at(u"missing")};
    protect(folder / "b");
    {
        const SettingsOverride settings(makeWritable(u"no"));
        EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { deleteFiles(files); }),
                  (Texts{at(u"b/locked").text(), messageOfNested}));
        EXPECT_THAT(listChildFiles(folder.path()), testing::UnorderedElementsAre(at(u"b"), at(u"c")));
    }
    const SettingsOverride settings(makeWritable(u"yes"));
    deleteFiles(files);
    EXPECT_EQ(listChildFiles(folder.path()), Paths{at(u"b")});
    EXPECT_TRUE(is_empty(folder / "b"));

    makeFile(u"b/locked/file");
    protect(folder / "b/locked");
    EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { deleteFiles({at(u"b")}); }),
              (Texts{at(u"b").text(), messageOfNested}))
        << "of all that is to be deleted, only the path itself is made writable";
}

TEST_F(FileUtilitiesTest, deletingALinkLeavesThePermissionsOfWhatItLeadsTo) {
    const SettingsOverride settings(makeWritable(u"yes"));
    makeFile(u"somebody's/file");
    makeFile(u"somebody's/folder/file");
    const UnprivilegedUser user;
    makeFile(u"own/file");
    makeFile(u"own/folder/file");
    std::filesystem::create_directory(folder / "links");
    for (const char* name : {"own/file", "own/folder", "somebody's/file", "somebody's/folder"}) {
        const std::filesystem::path target = folder / name;
        if (target.parent_path().filename() == "own")
            protect(target);
        const auto before = status(target).permissions();
        create_symlink(target, folder / "links/link");
        protect(folder / "links");
        deleteFiles({at(u"links/link")});
        EXPECT_TRUE(is_empty(folder / "links")) << name;
        EXPECT_EQ(status(target).permissions(), before) << name;
    }

    // The folder that is to be made writable is the one that the name says, not one that it leads to.
    create_directory_symlink(folder / "own/folder", folder / "links/link");
    EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { deleteFiles({at(u"links/link/file")}); }),
              (Texts{at(u"links/link/file").text(), messageOfNested}));
    EXPECT_FALSE(isOwnerWritable(folder / "own/folder"));
    makeFolder(at(u"links/link/new"));
    EXPECT_TRUE(is_directory(folder / "own/folder/new")) << "what is made lies where the link leads";
}

TEST_F(FileUtilitiesTest, pathsAndTextsAreComparedStrictly) {
    std::vector<host::Path> paths{makeFile(u"a"), at(u"b"), makeFile(u"c"), at(u"a")};
    purgeNonExistentFiles(paths);
    EXPECT_EQ(paths, (std::vector<host::Path>{at(u"a"), at(u"c"), at(u"a")}));

    EXPECT_TRUE(isParent(u"a/x/..", u"a/./b//c"));
    for (const char16_t* child : {u"a", u"ab/c", u"."})
        EXPECT_FALSE(isParent(u"a", child));
    EXPECT_FALSE(ends_with(u"abc", u"abc"));
    EXPECT_FALSE(ends_with(u"", u""));
    EXPECT_TRUE(ends_with(u"abc", u""));
    EXPECT_EQ(stripExtension(u"Project.xml", u".xml"), u"Project");
    for (const char16_t* kept : {u".xml", u"Project.XML", u"xml"})
        EXPECT_EQ(stripExtension(kept, u".xml"), kept);
}

TEST_F(FileUtilitiesTest, theParentOfAnElementAloneIsTheCurrentFolder) {
    makeFile(u"locked/file");
    const SettingsOverride settings(makeWritable(u"no"));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder / "locked");
    {
        const UnprivilegedUser user;
        EXPECT_EQ(raised<ReadOnlyMetadataFailure>([] { deleteFiles({u"file"}); }).front(), u"file");
    }
    std::filesystem::current_path(before);
}
