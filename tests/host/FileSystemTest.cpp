/// The file system operations, on the real disk.
#include "host/FileSystem.hpp"

#include "host/FileUtils.hpp"
#include "tests/host/Helpers.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/UnprivilegedUser.hpp"

#include <functional>
#include <set>

namespace fs = std::filesystem;
using host::CopyOption;
using host::FileSystem;
using host::FileUtils;
using host::Path;
using namespace test;

namespace {

struct Failure {
    std::string cause;
    Path path;
    std::function<void(const Path&)> operation;
};

std::set<std::string> listFolder(const Path& folder) {
    std::set<std::string> names;
    for (host::DirectoryIterator entries(folder); entries.isOpen(); entries.increment())
        names.insert(entries.fullPathName().fileName().accessName());
    return names;
}

class FileSystemTest : public testing::Test {
protected:
    Path path(const std::string& relative) const { return toPath(folder / relative); }

    void copy(const std::string& from, const std::string& to, CopyOption option = CopyOption::none) const {
        FileSystem::copy_file(path(from), path(to), option);
    }

    std::set<std::string> list() const { return listFolder(folder.path()); }

    /// Each of the operations fails with an `Error` that names the cause and the path.
    template <class Error>
    static void expectFailures(const std::vector<Failure>& failures) {
        for (const Failure& each : failures) {
            EXPECT_EQ(messageOf<Error>([&] { each.operation(each.path); }),
                      each.cause + ": \"" + each.path.accessName() + '"');
        }
    }

    const TempFolder folder;
};

TEST_F(FileSystemTest, WhatCannotWorkIsAnErrorThatNamesThePathAndTheCause) {
    writeBytes(folder / "file", "content");
    fs::create_symlink("nothing", folder / "dangling");
    fs::create_directory(folder / "folder");
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0666), 0);
    const auto entries = list();
    const auto copyFrom = [&](const Path& from) { FileSystem::copy_file(from, path("new"), CopyOption::none); };
    const auto copyTo = [&](const Path& to) { FileSystem::copy_file(path("file"), to, CopyOption::none); };
    expectFailures<host::FileSystemException>({
        {"Not a directory", path("file/below"), FileSystem::create_directories},
        {"No such file or directory", path("missing"), listFolder},
        {"No such file or directory", path("missing"), FileUtils::isReadOnly},
        {"No such file or directory", path("missing"), FileUtils::makeWritable},
        {"Is a directory", path("folder"), copyFrom},
        {"Invalid argument", path("fifo"), copyFrom},
        {"File exists", path("file"), copyTo},
        {"File exists", path("dangling"), copyTo},
    });
    // A name ends nowhere but at its end.
    const Path cut = folder.path() / Path(std::u16string(u"file\0b", 6));
    EXPECT_THROW(FileSystem::remove_all(cut), host::FileSystemException);
    EXPECT_EQ(list(), entries);
    EXPECT_EQ(readBytes(folder / "file"), "content");
}

TEST_F(FileSystemTest, WhatIsNotAllowedIsAnErrorOfItsOwn) {
    writeBytes(folder / "file", "");
    writeBytes(folder / "hidden/file", "");
    writeBytes(folder / "locked/file", "");
    fs::permissions(folder / "hidden", fs::perms::none);
    fs::permissions(folder / "locked", fs::perms(0555));
    const UnprivilegedUser user;
    expectFailures<host::AccessDeniedException>({
        {"Permission denied", path("hidden/file"), FileSystem::exists},
        {"Permission denied", path("hidden"), listFolder},
        {"Permission denied", path("locked/x"), FileSystem::create_directories},
        {"Permission denied", path("locked/file"), [](const Path& path) { FileSystem::remove_all(path.parentPath()); }},
        {"Permission denied", path("locked/to"), [&](const Path&) { copy("file", "locked/to"); }},
        {"Operation not permitted", u"/", FileUtils::makeWritable},
    });
    EXPECT_FALSE(FileUtils::existNoExcept(path("hidden/file")));
    EXPECT_TRUE(FileSystem::exists(path("locked/file")));
}

TEST_F(FileSystemTest, ReadOnlyIsWhatThisProcessMayNotWriteUntilItIsMadeWritable) {
    const UnprivilegedUser user;
    writeBytes(folder / "file", "");
    // A bit for others does not help the owner.
    fs::permissions(folder / "file", fs::perms(02577));
    EXPECT_TRUE(FileUtils::isReadOnly(path("file")));
    FileUtils::makeWritable(path("file"));
    EXPECT_FALSE(FileUtils::isReadOnly(path("file")));
    EXPECT_EQ(fs::status(folder / "file").permissions(), fs::perms(02777));

    fs::create_directory(folder / "folder");
    fs::permissions(folder / "folder", fs::perms(0555));
    fs::create_symlink("folder", folder / "link");
    fs::create_symlink("missing", folder / "dangling");
    for (const char* link : {"link", "link//", "dangling"})
        FileUtils::makeWritable(path(link));
    EXPECT_TRUE(FileUtils::isReadOnly(path("link"))) << "a link has no permissions of its own";
    for (const char* name : {"folder", "folder/", "dangling", "missing"})
        EXPECT_EQ(FileUtils::followLink(path(name)), path(name));
    EXPECT_EQ(FileUtils::followLink(path("link//")), toPath(fs::canonical(folder / "folder")));
    FileUtils::makeWritable(FileUtils::followLink(path("link")));
    EXPECT_FALSE(FileUtils::isReadOnly(path("folder")));
}

TEST_F(FileSystemTest, RemovingTakesLinksButNotWhatTheyLeadTo) {
    writeBytes(folder / "kept/file", "");
    writeBytes(folder / "gone/deep/file", "");
    fs::create_directory_symlink(folder / "kept", folder / "gone/link");
    fs::create_directory_symlink("kept", folder / "link");
    for (const char* name : {"gone", "link//", "missing", "kept/file/below"})
        FileSystem::remove_all(path(name));
    EXPECT_EQ(list(), std::set<std::string>{"kept"});
    EXPECT_TRUE(fs::exists(folder / "kept/file"));
}

TEST_F(FileSystemTest, CopiesHaveTheContentAndThePermissionsUnderAnyName) {
    const std::string big(100'000, 'x');
    writeBytes(folder / "\xE4", big);
    writeBytes(folder / "target", "old");
    fs::create_symlink("target", folder / "link");
    fs::permissions(folder / "\xE4", fs::perms(04500));
    copy("\xE4", "\x80\xFF");
    copy("\xE4", "link", CopyOption::overwriteExisting);
    for (const char* name : {"\x80\xFF", "target"}) {
        EXPECT_EQ(readBytes(folder / name), big);
        EXPECT_EQ(fs::status(folder / name).permissions(), fs::perms(0500));
    }
    EXPECT_EQ(list(), (std::set<std::string>{"\x80\xFF", "\xE4", "link", "target"}));
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
}

TEST_F(FileSystemTest, AFailedCopyLeavesNothingNewBehind) {
    writeBytes(folder / "from", std::string(100'000, 'x'));
    writeBytes(folder / "old", "old");
    {
        const FileSizeLimit limit(70'000);
        EXPECT_THROW(copy("from", "to"), host::FileSystemException);
        EXPECT_THROW(copy("from", "old", CopyOption::overwriteExisting), host::FileSystemException);
    }
    EXPECT_EQ(list(), (std::set<std::string>{"from", "old"}));
    EXPECT_EQ(readBytes(folder / "old"), "old");
}

}  // namespace
