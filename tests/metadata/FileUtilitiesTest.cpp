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

    Texts children() const { return sorted(textsOf(listChildFiles(folder.path()))); }

    const TempFolder folder;
};

}  // namespace

TEST_F(FileUtilitiesTest, purgingKeepsWhatExistsInItsOrder) {
    const host::Path a = makeFile(u"a");
    const host::Path c = makeFile(u"c");
    std::vector<host::Path> paths{c, at(u"b"), a, folder.path(), c, at(u"a/below a file")};
    purgeNonExistentFiles(paths);
    EXPECT_EQ(textsOf(paths), textsOf(std::vector{c, a, folder.path(), c}));

    std::filesystem::create_symlink("loop", folder / "loop");
    paths.push_back(at(u"loop/whose existence nobody can tell"));
    EXPECT_THROW(purgeNonExistentFiles(paths), host::FileSystemException);
}

TEST(FileNamesTest, theParentFolderIsAllButTheLastPart) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"/a/b/c.xml", u"/a/b"}, {u"a/b", u"a"}, {u"/a", u"/"}, {u"a", u""}, {u"", u""}};
    for (const auto& [path, parent] : cases)
        EXPECT_EQ(getParentFolder(path).text(), parent);
}

TEST(FileNamesTest, aParentLiesAboveHoweverThePathsAreWritten) {
    const host::Path current = toPath(std::filesystem::current_path());
    const std::pair<host::Path, host::Path> related[] = {
        {u"/a/b", u"/a/b/c"},          {u"/a", u"/a/b/c"},       {u"/", u"/a"},
        {u"/a/x/../b/", u"/a//b/./c"}, {u"a", u"a/b"},           {current, u"a file"},
        {u"a", current / u"a/b"},      {u"/a/b", u"/a/c/../b/d"}};
    for (const auto& [parent, child] : related) {
        EXPECT_TRUE(isParent(parent, child)) << parent.accessName() << " " << child.accessName();
        EXPECT_FALSE(isParent(child, parent)) << parent.accessName() << " " << child.accessName();
    }
    const std::pair<host::Path, host::Path> unrelated[] = {
        {u"/a/b", u"/a/b"}, {u"/a/b", u"/a/b/"}, {u"/a/b", u"/a/bc"}, {u"/a/b", u"/a/b/../c"}, {u"/a", u"a/b"}};
    for (const auto& [parent, child] : unrelated)
        EXPECT_FALSE(isParent(parent, child)) << parent.accessName() << " " << child.accessName();
}

TEST(FileNamesTest, aSuffixIsShorterThanTheText) {
    struct Case {
        const char16_t *text, *suffix;
        bool endsWith;
        const char16_t* stripped;
    };
    const Case cases[] = {{u"Project.xml", u".xml", true, u"Project"},
                          {u".xml", u".xml", false, u".xml"},
                          {u"Project.XML", u".xml", false, u"Project.XML"},
                          {u"a.xml.xml", u".xml", true, u"a.xml"},
                          {u"xml.b", u"xml", false, u"xml.b"},
                          {u"ml", u"xml", false, u"ml"},
                          {u"abc", u"", true, u"abc"},
                          {u"", u"", false, u""}};
    for (const auto& [text, suffix, endsWith, stripped] : cases) {
        EXPECT_EQ(ends_with(text, suffix), endsWith);
        EXPECT_EQ(stripExtension(text, suffix), stripped);
    }
}

TEST_F(FileUtilitiesTest, theSettingDecidesWhetherAFileIsMadeWritable) {
    const host::Path file = makeFile(u"file");
    std::filesystem::permissions(toStd(file), std::filesystem::perms(0440));
    for (const char16_t* value : {u"no", u"Yes", u"YES", u"true", u" yes", u"yes ", u""}) {
        const SettingsOverride settings(makeWritable(value));
        handleReadOnlyFile(file);
        handleReadOnlyFile(at(u"missing"));
        EXPECT_FALSE(isOwnerWritable(toStd(file)));
    }
    const SettingsOverride settings(makeWritable(u"yes"));
    handleReadOnlyFile(file);
    EXPECT_EQ(status(toStd(file)).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(raised<FailedToMakeMetadataWritable>([&] { handleReadOnlyFile(at(u"missing")); }),
              (Texts{at(u"missing").text(), messageOfNested}));

    const SettingsOverride noSuchKey{MemorySettings::Values{}};
    EXPECT_THROW(handleReadOnlyFile(file), std::out_of_range);
}

TEST_F(FileUtilitiesTest, theLackOfSettingsIsLoggedAndNothingElse) {
    const host::Path file = makeFile(u"file");
    const WriteProtection protection(toStd(file));
    const SettingsOverride noSettings(nullptr);
    testing::internal::CaptureStderr();
    handleReadOnlyFile(file);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "warning: project::metadata: \"settings::standalone::getSettingsRoot()\" returned null\n");
    EXPECT_FALSE(isOwnerWritable(toStd(file)));
    EXPECT_EQ(&logger(), &logger());
}

TEST_F(FileUtilitiesTest, foldersAreMadeWithAllAboveThem) {
    makeFolder(at(u"a/b/c"));
    makeFolder(at(u"a/b/c"));
    EXPECT_TRUE(is_directory(toStd(at(u"a/b/c"))));
    makeFile(u"file");
    for (const host::Path& path : {at(u"file"), at(u"file/below"), at(u"file/far/below")})
        EXPECT_EQ(raised<MetadataWriteFailure>([&] { makeFolder(path); }), (Texts{path.text(), messageOfNested}));
}

TEST_F(FileUtilitiesTest, aFolderBelowAReadOnlyOneIsMadeIfTheSettingsAllowIt) {
    const UnprivilegedUser user;
    makeFolder(at(u"locked"));
    const WriteProtection protection(folder / "locked");
    for (const char16_t* value : {u"no", u"Yes", u"true"}) {
        const SettingsOverride settings(makeWritable(value));
        for (const host::Path& path : {at(u"locked/a"), at(u"locked/a/b")})
            EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { makeFolder(path); }),
                      (Texts{path.text(), messageOfNested}));
    }
    const SettingsOverride noSettings(nullptr);
    EXPECT_THROW(makeFolder(at(u"locked/a")), ReadOnlyMetadataFailure);
    EXPECT_FALSE(isOwnerWritable(folder / "locked"));

    const SettingsOverride settings(makeWritable(u"yes"));
    EXPECT_EQ(raised<FailedToMakeMetadataWritable>([&] { makeFolder(at(u"locked/a/b")); }),
              (Texts{at(u"locked/a").text(), messageOfNested}))
        << "it is always the parent that is made writable, also one that is not there";
    makeFolder(at(u"locked/a"));
    EXPECT_TRUE(is_directory(folder / "locked/a"));
}

TEST_F(FileUtilitiesTest, listsEverythingDirectlyInAFolder) {
    EXPECT_EQ(textsOf(listChildFiles({})), Texts{});
    EXPECT_EQ(children(), Texts{});

    makeFile(u"a");
    makeFile(u".hidden");
    makeFile(u"sub/below");
    const host::Path notUtf8 = toPath(folder / "no\xFFutf8");
    writeBytes(toStd(notUtf8), "");
    std::filesystem::create_symlink("nowhere", folder / "link");
    EXPECT_EQ(children(), sorted(textsOf(std::vector{at(u"a"), at(u".hidden"), at(u"sub"), at(u"link"), notUtf8})));
    for (const host::Path& path : {at(u"missing"), at(u"a"), at(u"a/below")})
        EXPECT_EQ(raised<ListChildFilesFailure>([&] { listChildFiles(path); }), (Texts{path.text(), messageOfNested}));

    deleteFiles(listChildFiles(folder.path()));
    EXPECT_EQ(children(), Texts{at(u"link").text()}) << "leads to nothing, so it does not exist";
}

TEST_F(FileUtilitiesTest, deletesInAscendingOrderUntilTheFirstError) {
    makeFile(u"a");
    makeFile(u"b/c/d");
    deleteFiles({at(u"b"), at(u"missing"), at(u"a"), at(u"b"), at(u"b/c/d"), {}});
    EXPECT_EQ(children(), Texts{});

    const UnprivilegedUser user;
    for (const char16_t* file : {u"a", u"b/locked", u"c"})
        makeFile(file);
    const WriteProtection protection(folder / "b");
    const SettingsOverride settings(makeWritable(u"no"));
    EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] {
                  deleteFiles({at(u"c"), at(u"b/locked"), at(u"a")});
              }),
              (Texts{at(u"b/locked").text(), messageOfNested}));
    EXPECT_EQ(children(), textsOf(std::vector{at(u"b"), at(u"c")}));
}

TEST_F(FileUtilitiesTest, whatIsReadOnlyIsDeletedIfTheSettingsAllowIt) {
    const UnprivilegedUser user;
    const SettingsOverride settings(makeWritable(u"yes"));
    const host::Path file = makeFile(u"locked/file");
    {
        const WriteProtection fileProtection(toStd(file));
        const WriteProtection folderProtection(folder / "locked");
        deleteFiles({file});
        EXPECT_TRUE(isOwnerWritable(folder / "locked"));
        EXPECT_TRUE(is_empty(folder / "locked"));
    }
    // The folder above is writable, but another user's: to make it writable would fail, and is not tried.
    makeFile(u"locked/file");
    const WriteProtection protection(folder / "locked");
    deleteFiles({at(u"locked")});
    EXPECT_EQ(children(), Texts{});

    makeFile(u"deep/locked/file");
    const WriteProtection deepProtection(folder / "deep/locked");
    EXPECT_EQ(raised<ReadOnlyMetadataFailure>([&] { deleteFiles({at(u"deep")}); }),
              (Texts{at(u"deep").text(), messageOfNested}))
        << "of all that is to be deleted, only the path itself is made writable";
}
