// Replacing a file in one step: what it keeps, what it refuses, and what it leaves behind.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <map>

#include "project/metadata/MetadataErrors.hpp"
#include "store_support/FileReplacement.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/Settings.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

using namespace test;
using project::metadata::MetadataWriteFailure;
using project::metadata::ReadOnlyMetadataFailure;
using store_support::makeFile;
using store_support::replaceFile;

namespace fs = std::filesystem;

namespace {

class FileReplacementTest : public testing::Test {
protected:
    FileReplacementTest() { writeBytes(file_, "old"); }

    /// All names in the folder, links and folders too, and the content of the files.
    std::map<std::string, std::string> entries() const {
        std::map<std::string, std::string> result;
        for (const auto& entry : fs::recursive_directory_iterator(folder_.std()))
            result[entry.path().filename()] =
                entry.symlink_status().type() == fs::file_type::regular ? readBytes(entry.path()) : "";
        return result;
    }

    template <class Error = MetadataWriteFailure>
    void expectRefused(const fs::path& file, const std::string& reason) const {
        const auto before = entries();
        const std::string message = messageOf<Error>([&] { replaceFile(toPath(file), "new"); });
        EXPECT_NE(message.find(file.string()), std::string::npos) << message;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
        EXPECT_EQ(entries(), before);
    }

    static struct stat statusOf(const fs::path& file) {
        struct stat status {};
        EXPECT_EQ(lstat(file.c_str(), &status), 0);
        return status;
    }

    TempFolder folder_;
    fs::path file_ = folder_ / "file";
};

TEST_F(FileReplacementTest, ReplacesOrMakesOneFileAndTouchesNoOther) {
    writeBytes(folder_ / "file.new", "somebody's");
    writeBytes(folder_ / ".replacement-1", "somebody's");
    auto expected = entries();
    const auto inode = statusOf(file_).st_ino;
    const int reader = open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    replaceFile(toPath(file_), "new");
    replaceFile(toPath(folder_ / "other"), std::string_view("a\0b", 3));
    makeFile(toPath(folder_ / "made"), [](const host::Path& staged) { writeBytes(toStd(staged), "made"); });
    expected["file"] = "new";
    expected["other"] = std::string("a\0b", 3);
    expected["made"] = "made";
    EXPECT_EQ(entries(), expected);
    // Who has the old file open keeps it.
    EXPECT_NE(statusOf(file_).st_ino, inode);
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 1);
    EXPECT_EQ(byte, 'o');
    close(reader);
}

TEST_F(FileReplacementTest, NewContentIsNotSeenBeforeItIsComplete) {
    replaceFile(toPath(file_), [&](const host::Path& staged) {
        EXPECT_EQ(toStd(staged).parent_path(), folder_.std());
        EXPECT_EQ(statusOf(toStd(staged)).st_mode & 0077U, 0U) << "others may look into what replaces a private file";
        writeBytes(toStd(staged), "half");
        EXPECT_EQ(readBytes(file_), "old");
        // As by a program that replaces files itself.
        fs::remove(toStd(staged));
        writeBytes(toStd(staged), "whole");
    });
    EXPECT_EQ(readBytes(file_), "whole");
}

TEST_F(FileReplacementTest, KeepsPermissionsAndOwner) {
    const mode_t mask = umask(027);
    for (const unsigned mode : {0640U, 0600U, 0777U, 04711U}) {
        ASSERT_EQ(chown(file_.c_str(), 65534, 65534), 0);
        ASSERT_EQ(chmod(file_.c_str(), mode), 0);
        replaceFile(toPath(file_), "new");
        EXPECT_EQ(statusOf(file_).st_mode & 07777U, mode);
        EXPECT_EQ(statusOf(file_).st_uid, 65534U);
        EXPECT_EQ(statusOf(file_).st_gid, 65534U);
    }
    replaceFile(toPath(folder_ / "other"), "new");
    EXPECT_EQ(statusOf(folder_ / "other").st_mode & 07777U, 0640U);
    umask(mask);

    // Who may not give files away becomes the owner, and nobody can run the file as him.
    ASSERT_EQ(chown(file_.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(file_.c_str(), 06777), 0);
    const UnprivilegedUser user;
    replaceFile(toPath(file_), "mine");
    EXPECT_EQ(statusOf(file_).st_uid, 65534U);
    EXPECT_EQ(statusOf(file_).st_mode & 07777U, 0777U);
}

TEST_F(FileReplacementTest, FollowsLinksToTheirEnd) {
    const TempFolder elsewhere;
    writeBytes(elsewhere / "end", "old");
    fs::create_symlink(elsewhere / "end", folder_ / "absolute");
    fs::create_symlink("absolute", folder_ / "relative");
    replaceFile(toPath(folder_ / "relative"), "new");
    EXPECT_TRUE(fs::is_symlink(folder_ / "relative"));
    EXPECT_TRUE(fs::is_symlink(folder_ / "absolute"));
    EXPECT_FALSE(fs::is_symlink(elsewhere / "end"));
    EXPECT_EQ(readBytes(elsewhere / "end"), "new");

    fs::create_symlink(elsewhere / "missing", folder_ / "dangling");
    expectRefused(file_ / "below", "Not a directory");
    EXPECT_THROW(makeFile(toPath(folder_ / "dangling"), [](const host::Path&) {}), MetadataWriteFailure);
    EXPECT_FALSE(fs::exists(elsewhere / "missing"));
    replaceFile(toPath(folder_ / "dangling"), "made");
    EXPECT_TRUE(fs::is_symlink(folder_ / "dangling"));
    EXPECT_EQ(readBytes(elsewhere / "missing"), "made");

    fs::create_symlink("loop", folder_ / "loop");
    expectRefused(folder_ / "loop", "symbolic links");
    fs::create_symlink("no/folder", folder_ / "nowhere");
    expectRefused(folder_ / "nowhere", "No such file");
}

TEST_F(FileReplacementTest, ALinkOfAStrangerIsNotFollowedWhereTheSystemRefuses) {
    const std::string setting = readBytes("/proc/sys/fs/protected_symlinks");
    fs::create_directory(folder_ / "shared");
    fs::permissions(folder_ / "shared", fs::perms(01777));
    const fs::path link = folder_ / "shared/link";
    fs::create_symlink(file_, link);
    ASSERT_EQ(lchown(link.c_str(), 65534, 65534), 0);
    if (setting[0] == '1') {
        expectRefused(link, "Permission denied");
    } else {
        replaceFile(toPath(link), "new");
        EXPECT_EQ(readBytes(file_), "new");
    }
}

TEST_F(FileReplacementTest, WhatIsNoRegularFileIsNeverReplaced) {
    fs::create_directory(folder_ / "folder");
    expectRefused(folder_ / "folder", "it is a folder");
    ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0666), 0);
    expectRefused(folder_ / "pipe", "it is a pipe");
    fs::create_symlink(folder_ / "pipe", folder_ / "link");
    expectRefused(folder_ / "link", "it is a pipe");
    EXPECT_TRUE(fs::is_fifo(folder_ / "pipe"));

    // A device like /dev/null, where making one is allowed; that itself is safe, as nothing may go wrong here.
    const fs::path device = folder_ / "null";
    if (mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) {
        expectRefused(device, "it is a device");
        EXPECT_TRUE(fs::is_character_file(device));
    }
    const UnprivilegedUser user;
    EXPECT_NE(messageOf<MetadataWriteFailure>([] { replaceFile(u"/dev/null", "new"); }).find("it is a device"),
              std::string::npos);
}

TEST_F(FileReplacementTest, AFileThatIsThereIsNotMade) {
    const auto write = [](const host::Path& staged) { writeBytes(toStd(staged), "new"); };
    const auto before = entries();
    EXPECT_NE(messageOf<MetadataWriteFailure>([&] { makeFile(toPath(file_), write); }).find("File exists"),
              std::string::npos);
    EXPECT_EQ(entries(), before);
    // Somebody else is faster.
    const fs::path other = folder_ / "other";
    EXPECT_THROW(makeFile(toPath(other),
                          [&](const host::Path& staged) {
                              write(staged);
                              writeBytes(other, "faster");
                          }),
                 MetadataWriteFailure);
    EXPECT_EQ(entries(), (std::map<std::string, std::string>{{"file", "old"}, {"other", "faster"}}));
}

TEST_F(FileReplacementTest, AFailureLeavesNothingBehind) {
    const auto before = entries();
    EXPECT_THROW(replaceFile(toPath(file_),
                             [](const host::Path& staged) {
                                 writeBytes(toStd(staged), "half");
                                 throw std::runtime_error("the end");
                             }),
                 std::runtime_error);
    EXPECT_EQ(entries(), before);
    {
        const FileSizeLimit full(100);
        const std::string message =
            messageOf<MetadataWriteFailure>([&] { replaceFile(toPath(file_), std::string(200, 'x')); });
        EXPECT_NE(message.find("File too large"), std::string::npos) << message;
        EXPECT_NE(message.find(file_.string() + '"'), std::string::npos) << message;
    }
    EXPECT_EQ(entries(), before);
    // The writer takes the file away.
    EXPECT_THROW(replaceFile(toPath(file_), [](const host::Path& staged) { fs::remove(toStd(staged)); }),
                 MetadataWriteFailure);
    EXPECT_EQ(entries(), before);
}

TEST_F(FileReplacementTest, WithoutPermissionNothingHappens) {
    const SettingsOverride settings({{{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, u"no"}});
    fs::create_directory(folder_ / "closed");
    writeBytes(folder_ / "closed/file", "old");
    fs::permissions(folder_ / "closed/file", fs::perms::all);
    fs::permissions(file_, fs::perms(0444));
    const UnprivilegedUser user;
    expectRefused(folder_ / "closed/file", "Permission denied");
    expectRefused<ReadOnlyMetadataFailure>(file_, "read-only");
}

}  // namespace
