/// The file system operations, on the real disk.
#include "host/FileSystem.hpp"

#include "tests/host/Helpers.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using host::AccessDeniedException;
using host::CopyOption;
using host::DirectoryIterator;
using host::FileSystem;
using host::FileSystemException;
using host::Path;
using test::catchError;
using test::readBytes;
using test::TempFolder;
using test::toPath;
using test::UnprivilegedUser;
using test::writeBytes;

namespace {

const std::string big(100'000, 'x');

std::vector<std::string> list(const Path& folder) {
    std::vector<std::string> names;
    for (DirectoryIterator entries(folder); entries.isOpen(); entries.increment())
        names.push_back(entries.fullPathName().accessName());
    std::sort(names.begin(), names.end());
    return names;
}

/// Files of this process cannot grow beyond some size for as long as this object lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int);
};

TEST(FileSystem, ErrorsNameThePathAndTheCause) {
    const FileSystemException error(u"/x/\u00E4", std::make_error_code(std::errc::no_space_on_device));
    EXPECT_STREQ(error.what(), "No space left on device: \"/x/\xC3\xA4\"");
    EXPECT_EQ(FileSystem::getExceptionMessage(error), u"No space left on device: \"/x/\u00E4\"");

    const FileSystemException odd(u"\xDCE4\n", std::make_error_code(std::errc::no_such_file_or_directory));
    EXPECT_STREQ(odd.what(), "No such file or directory: \"\\xE4\\u000A\"");
}

TEST(FileSystem, ANameEndsNowhereButAtItsEnd) {
    const TempFolder folder;
    writeBytes(folder / "a", "");
    const Path cut = folder.path() / Path(std::u16string(u"a\0b", 3));
    EXPECT_THROW(FileSystem::exists(cut), FileSystemException);
    EXPECT_THROW(FileSystem::remove_all(cut), FileSystemException);
    EXPECT_THROW(FileSystem::create_directories(cut), FileSystemException);
    EXPECT_THROW(FileSystem::copy_file(toPath(folder / "a"), cut, CopyOption::none), FileSystemException);
    EXPECT_EQ(list(folder.path()), std::vector<std::string>{folder / "a"});
}

TEST(FileSystem, NamesThatAreNotUtf8CanBeUsed) {
    const TempFolder folder;
    const std::vector<std::string> names{folder / "\x80\xFF", folder / "\xC3\xA4", folder / "\xE4"};
    for (const std::string& name : names)
        writeBytes(name, name);
    EXPECT_EQ(list(folder.path()), names);
    for (const std::string& name : list(folder.path())) {
        const Path file = Path::fromAccessName(name);
        FileSystem::copy_file(file, file.text() + u".copy", CopyOption::none);
        EXPECT_EQ(readBytes(name + ".copy"), name);
        FileSystem::remove_all(file);
        EXPECT_FALSE(FileSystem::exists(file));
    }
    EXPECT_EQ(list(folder.path()).size(), names.size());
}

TEST(FileSystem, Exists) {
    const TempFolder folder;
    writeBytes(folder / "file", "");
    writeBytes(folder / "closed/file", "");
    fs::create_symlink("nothing", folder / "dangling");
    fs::permissions(folder / "closed", fs::perms::owner_all);
    EXPECT_TRUE(FileSystem::exists(folder.path()));
    EXPECT_TRUE(FileSystem::exists(toPath(folder / "file")));
    EXPECT_FALSE(FileSystem::exists(toPath(folder / "dangling")));
    EXPECT_FALSE(FileSystem::exists(toPath(folder / "file/below")));
    EXPECT_FALSE(FileSystem::exists(Path()));
    EXPECT_THROW(FileSystem::exists(toPath(folder / std::string(300, 'n'))), FileSystemException);

    fs::permissions(folder / "closed", fs::perms::none);
    const UnprivilegedUser user;
    const Path hidden = toPath(folder / "closed/file");
    EXPECT_EQ(catchError<AccessDeniedException>([&] { FileSystem::exists(hidden); }).path(), hidden);
}

TEST(FileSystem, FoldersAreMade) {
    const TempFolder folder;
    writeBytes(folder / "file", "content");
    const Path deep = toPath(folder / "a/b/c/");
    FileSystem::create_directories(deep);
    FileSystem::create_directories(deep);
    EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));

    for (const char* name : {"file", "file/below"}) {
        const Path path = toPath(folder / name);
        const auto error = catchError<FileSystemException>([&] { FileSystem::create_directories(path); });
        EXPECT_EQ(error.code(), std::errc::not_a_directory) << name;
        EXPECT_EQ(error.path(), path);
        EXPECT_THROW(FileSystem::create_directories(path), FileSystemException);
    }
    EXPECT_EQ(readBytes(folder / "file"), "content");

    fs::permissions(folder / "a", fs::perms(0555));
    const UnprivilegedUser user;
    const Path refused = toPath(folder / "a/x/y");
    EXPECT_EQ(catchError<AccessDeniedException>([&] { FileSystem::create_directories(refused); }).path(), refused);
}

TEST(FileSystem, RemovingTakesLinksButNotWhatTheyLeadTo) {
    const TempFolder folder;
    writeBytes(folder / "kept/file", "");
    writeBytes(folder / "gone/deep/file", "");
    fs::create_directory_symlink(folder / "kept", folder / "gone/link");
    fs::create_directory_symlink("kept", folder / "link");

    FileSystem::remove_all(toPath(folder / "gone"));
    FileSystem::remove_all(toPath(folder / "link//"));
    FileSystem::remove_all(toPath(folder / "missing"));
    FileSystem::remove_all(toPath(folder / "kept/file/below"));
    EXPECT_EQ(list(folder.path()), std::vector<std::string>{folder / "kept"});
    EXPECT_TRUE(fs::exists(folder / "kept/file"));
}

TEST(FileSystem, WhatCannotBeRemovedIsNamed) {
    const TempFolder folder;
    writeBytes(folder / "top/closed/file", "");
    fs::permissions(folder / "top", fs::perms::all);
    fs::permissions(folder / "top/closed", fs::perms(0555));
    const UnprivilegedUser user;
    const auto error = catchError<AccessDeniedException>([&] { FileSystem::remove_all(toPath(folder / "top")); });
    EXPECT_EQ(error.path(), toPath(folder / "top/closed/file"));
    EXPECT_TRUE(fs::exists(folder / "top/closed/file"));
}

TEST(FileSystem, CopyRefusesWhatExists) {
    const TempFolder folder;
    writeBytes(folder / "from", "new");
    writeBytes(folder / "to", "old");
    fs::create_symlink("nothing", folder / "dangling");
    for (const char* name : {"to", "dangling", ""}) {
        const Path to = toPath(folder / name);
        const auto error = catchError<FileSystemException>(
            [&] { FileSystem::copy_file(toPath(folder / "from"), to, CopyOption::none); });
        EXPECT_EQ(error.path(), to);
    }
    EXPECT_EQ(readBytes(folder / "to"), "old");
    EXPECT_FALSE(fs::exists(folder / "nothing"));

    FileSystem::copy_file(toPath(folder / "from"), toPath(folder / "to"), CopyOption::overwriteExisting);
    EXPECT_EQ(readBytes(folder / "to"), "new");
}

TEST(FileSystem, CopyKeepsContentAndPermissions) {
    const TempFolder folder;
    const mode_t mask = umask(022);
    writeBytes(folder / "from", big);
    for (const auto mode : {fs::perms(0444), fs::perms(0755), fs::perms(04660)}) {
        fs::permissions(folder / "from", mode);
        FileSystem::copy_file(toPath(folder / "from"), toPath(folder / "to"), CopyOption::none);
        EXPECT_EQ(readBytes(folder / "to"), big);
        EXPECT_EQ(fs::status(folder / "to").permissions(), mode & fs::perms(0755));
        fs::remove(folder / "to");
    }
    umask(mask);
}

TEST(FileSystem, AFailedCopyLeavesNothingNewBehind) {
    const TempFolder folder;
    writeBytes(folder / "from", big);
    writeBytes(folder / "old", "old");
    const auto copyFails = [&](const Path& from, const std::string& to, CopyOption option) {
        return catchError<FileSystemException>([&] { FileSystem::copy_file(from, toPath(folder / to), option); });
    };
    {
        const FileSizeLimit limit(70'000);
        const auto error = copyFails(toPath(folder / "from"), "to", CopyOption::none);
        EXPECT_EQ(error.code(), std::errc::file_too_large);
        EXPECT_EQ(error.path(), toPath(folder / "to"));
        copyFails(toPath(folder / "from"), "old", CopyOption::overwriteExisting);
    }
    // The first page of a process is never mapped, so that reading from there fails.
    const auto error = copyFails(u"/proc/self/mem", "to", CopyOption::none);
    EXPECT_EQ(error.code(), std::errc::io_error);
    EXPECT_EQ(error.path(), u"/proc/self/mem");

    EXPECT_EQ(list(folder.path()), (std::vector<std::string>{folder / "from", folder / "old"}));
    EXPECT_EQ(readBytes(folder / "old"), "old");
}

TEST(FileSystem, OnlyRegularFilesAreCopiedAndReplaced) {
    const TempFolder folder;
    writeBytes(folder / "file", "content");
    writeBytes(folder / "target", "old");
    fs::create_symlink("target", folder / "link");
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0666), 0);
    const auto copy = [&](const char* from, const char* to) {
        FileSystem::copy_file(toPath(folder / from), toPath(folder / to), CopyOption::overwriteExisting);
    };
    for (const char* from : {"", "fifo", "missing"})
        EXPECT_THROW(copy(from, "new"), FileSystemException) << from;
    EXPECT_THROW(copy("file", "fifo"), FileSystemException);
    EXPECT_THROW(copy("file", ""), FileSystemException);
    EXPECT_TRUE(fs::is_fifo(folder / "fifo"));
    EXPECT_FALSE(fs::exists(folder / "new"));

    copy("file", "link");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(readBytes(folder / "target"), "content");
}

TEST(FileSystem, CopyIntoAReadOnlyFolderIsDenied) {
    const TempFolder folder;
    writeBytes(folder / "from", "");
    fs::create_directory(folder / "closed");
    fs::permissions(folder / "closed", fs::perms(0555));
    const UnprivilegedUser user;
    const Path to = toPath(folder / "closed/to");
    const auto copy = [&] { FileSystem::copy_file(toPath(folder / "from"), to, CopyOption::none); };
    EXPECT_EQ(catchError<AccessDeniedException>(copy).path(), to);
}

TEST(FileSystem, ListingReportsWhyItFails) {
    const TempFolder folder;
    writeBytes(folder / "file", "");
    fs::create_directory(folder / "closed");
    EXPECT_FALSE(DirectoryIterator(toPath(folder / "closed")).isOpen());

    for (const char* name : {"file", "missing"}) {
        const auto open = [&] { DirectoryIterator(toPath(folder / name)); };
        EXPECT_EQ(catchError<FileSystemException>(open).path(), toPath(folder / name));
    }
    fs::permissions(folder / "closed", fs::perms::none);
    const UnprivilegedUser user;
    EXPECT_THROW(DirectoryIterator(toPath(folder / "closed")), AccessDeniedException);
}

TEST(FileSystem, TheFolderForTemporaryFiles) {
    const TempFolder folder;
    writeBytes(folder / "file", "");
    {
        const test::ScopedVariable variable("TMPDIR", folder.std());
        EXPECT_EQ(FileSystem::temp_directory_name(), folder.path());
    }
    for (const char* name : {"file", "missing"}) {
        const test::ScopedVariable variable("TMPDIR", folder / name);
        EXPECT_EQ(catchError<FileSystemException>(FileSystem::temp_directory_name).path(), toPath(folder / name));
    }
    const test::ScopedVariable variable("TMPDIR", std::nullopt);
    EXPECT_EQ(FileSystem::temp_directory_name(), u"/tmp");
}

}  // namespace
