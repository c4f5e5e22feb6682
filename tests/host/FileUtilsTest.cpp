/// Questions about files and paths, on the real disk.
#include "host/FileUtils.hpp"

#include "host/FileSystem.hpp"
#include "tests/host/Helpers.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace fs = std::filesystem;
using host::FileUtils;
using host::Path;
using test::TempFolder;
using test::toPath;
using test::UnprivilegedUser;
using test::writeBytes;

namespace {

TEST(FileUtils, ReadOnlyIsWhatThisProcessMayNotWrite) {
    const TempFolder folder;
    writeBytes(folder / "open", "");
    writeBytes(folder / "closed", "");
    writeBytes(folder / "hidden/file", "");
    fs::permissions(folder / "open", fs::perms(0666));
    fs::permissions(folder / "closed", fs::perms(0444));
    {
        const UnprivilegedUser user;
        writeBytes(folder / "mine", "");
        fs::permissions(folder / "mine", fs::perms(0466));
        // A bit for others does not help the owner.
        EXPECT_TRUE(FileUtils::isReadOnly(toPath(folder / "mine")));
        EXPECT_FALSE(FileUtils::isReadOnly(toPath(folder / "open")));
        EXPECT_TRUE(FileUtils::isReadOnly(toPath(folder / "closed")));
        EXPECT_TRUE(FileUtils::isReadOnlyNoExcept(toPath(folder / "closed")));
    }
    const Path missing = toPath(folder / "missing");
    EXPECT_EQ(test::catchError<host::FileSystemException>([&] { FileUtils::isReadOnly(missing); }).path(), missing);
    EXPECT_FALSE(FileUtils::isReadOnlyNoExcept(missing));
}

TEST(FileUtils, ExistenceThatCannotBeFoundOutCountsAsNone) {
    const TempFolder folder;
    writeBytes(folder / "closed/file", "");
    fs::permissions(folder / "closed", fs::perms::none);
    EXPECT_TRUE(FileUtils::existNoExcept(toPath(folder / "closed")));
    EXPECT_FALSE(FileUtils::existNoExcept(toPath(folder / std::string(300, 'n'))));
    const UnprivilegedUser user;
    EXPECT_FALSE(FileUtils::existNoExcept(toPath(folder / "closed/file")));
}

TEST(FileUtils, MakingWritableAddsOneBit) {
    const TempFolder folder;
    {
        const UnprivilegedUser user;
        writeBytes(folder / "file", "");
        fs::create_directory(folder / "folder");
        for (const char* name : {"file", "folder"}) {
            fs::permissions(folder / name, fs::perms(02555));
            FileUtils::makeWritable(toPath(folder / name));
            EXPECT_EQ(fs::status(folder / name).permissions(), fs::perms(02755)) << name;
            EXPECT_FALSE(FileUtils::isReadOnly(toPath(folder / name)));
        }
    }
    writeBytes(folder / "other", "");
    fs::permissions(folder / "other", fs::perms(0444));
    const UnprivilegedUser user;
    const Path other = getuid() == 0 ? toPath(folder / "other") : Path(u"/");
    EXPECT_EQ(test::catchError<host::AccessDeniedException>([&] { FileUtils::makeWritable(other); }).path(), other);
    EXPECT_THROW(FileUtils::makeWritable(toPath(folder / "missing")), host::FileSystemException);
}

TEST(FileUtils, AbsolutePathsStartAtTheCurrentFolder) {
    const TempFolder folder;
    const fs::path before = fs::current_path();
    fs::create_directory(folder / "\xE4");
    fs::current_path(folder / "\xE4");
    const Path current = Path::fromAccessName(fs::current_path().native());
    EXPECT_EQ(FileUtils::makeAbsolute(u"a/../b").text(), (current / u"a/../b").text());
    EXPECT_EQ(FileUtils::makeAbsolute(u"").text(), current.text());
    EXPECT_EQ(FileUtils::makeAbsolute(u"/a//b").text(), u"/a//b");

    fs::remove(folder / "\xE4");
    EXPECT_THROW(FileUtils::makeAbsolute(u"a"), host::FileSystemException);
    fs::current_path(before);
}

TEST(FileUtils, Normalize) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"/a/./b//c/", u"/a/b/c"},
        {u"/a/b/../c/..", u"/a"},
        {u"a/..", u"."},
        {u"/", u"/"},
        {u"///", u"/"},
        {u"//a", u"/a"},
        {u"/../a", u"/a"},
        {u"../a", u"../a"},
        {u"", u""},
        {u"a/../../b", u"../b"},
        {u"./a", u"a"},
        {u"a.b/.", u"a.b"},
        {u"\xDCE4/./\xDCC3", u"\xDCE4/\xDCC3"},
    };
    for (const auto& [path, normal] : cases)
        EXPECT_EQ(FileUtils::normalize(path).text(), normal) << Path(path).accessName();
}

TEST(FileUtils, AncestorsAreStrictAndElementByElement) {
    EXPECT_TRUE(FileUtils::isAncestor(u"/a/b", u"/a/b/c"));
    EXPECT_TRUE(FileUtils::isAncestor(u"/a//b/", u"/a/b/c/d"));
    EXPECT_TRUE(FileUtils::isAncestor(u"/", u"/a"));
    EXPECT_TRUE(FileUtils::isAncestor(u"a", u"a/b"));
    EXPECT_FALSE(FileUtils::isAncestor(u"/a/b", u"/a/bc"));
    EXPECT_FALSE(FileUtils::isAncestor(u"/a/b", u"/a/b"));
    EXPECT_FALSE(FileUtils::isAncestor(u"/a/b", u"/a/b/"));
    EXPECT_FALSE(FileUtils::isAncestor(u"/a/b/c", u"/a/b"));
    EXPECT_FALSE(FileUtils::isAncestor(u"a", u"/a/b"));
    EXPECT_FALSE(FileUtils::isAncestor(u"", u"a"));
    EXPECT_FALSE(FileUtils::isAncestor(u"", u"/a"));
}

}  // namespace
