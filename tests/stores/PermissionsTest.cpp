// Projects that several users share: what a change leaves of owners, groups, modes, access lists and attributes, what
// others may do meanwhile, and what a process leaves that is killed.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/FileReplacement.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/OtherUser.hpp"

using namespace test;
using project::metadata::MetadataWriteFailure;
using store_support::FolderLock;

namespace fs = std::filesystem;

namespace {

constexpr gid_t team = 20000;
const User alice{12345, team, {}, 007};
const User bob{12346, 12346, {team}, 007};

struct stat statusOf(const fs::path& file) {
    struct stat status {};
    if (lstat(file.c_str(), &status) != 0)
        throw std::runtime_error("no " + file.string());
    return status;
}

unsigned modeOf(const fs::path& file) {
    return statusOf(file).st_mode & 07777U;
}

void give(const fs::path& file, const User& user, gid_t group, mode_t mode) {
    if (chown(file.c_str(), user.id, group) != 0 || chmod(file.c_str(), mode) != 0)
        throw std::runtime_error("cannot give away " + file.string());
}

/// All below `folder`, with modes, owners and the content of files.
std::string listing(const fs::path& folder) {
    std::vector<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const struct stat status = statusOf(entry.path());
        lines.push_back(entry.path().string() + " " + std::to_string(status.st_mode) + " " +
                        std::to_string(status.st_uid) + ":" + std::to_string(status.st_gid) + " " +
                        (entry.is_regular_file() ? readBytes(entry.path()) : ""));
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

void require(bool condition, const std::string& what) {
    if (!condition)
        throw std::runtime_error(what);
}

class PermissionsTest : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only the superuser can become several users";
    }

    TempFolder folder_;
};

/// A change of one file, by each of those that change files.
struct Change {
    const char* name;
    void (*apply)(const fs::path& file);
    friend std::ostream& operator<<(std::ostream& stream, const Change& change) { return stream << change.name; }
};

void changeInBatch(const fs::path& file) {
    store_support::FileBatch batch;
    batch.folder = toPath(file.parent_path());
    batch.filesToWrite = {toPath(file)};
    batch.write = [](std::size_t, const host::Path& staged) { writeBytes(toStd(staged), "new"); };
    commit(batch, FolderLock(batch.folder));
}

void changeAlone(const fs::path& file) {
    store_support::replaceFile(toPath(file), "new");
}

class AttributesTest : public PermissionsTest, public testing::WithParamInterface<Change> {
protected:
    AttributesTest() {
        fs::create_directory(folder_ / "p");
        fs::permissions(folder_ / "p", fs::perms::all);
        writeBytes(file_, "old");
    }

    int changeAs(const User& user) const {
        return runAs(user, [this] { GetParam().apply(file_); });
    }

    void expectRefused(const User& user, const std::string& reason) const {
        const std::string before = listing(folder_.std());
        EXPECT_EQ(runAs(user,
                        [&] {
                            const std::string message =
                                messageOf<MetadataWriteFailure>([this] { GetParam().apply(file_); });
                            require(message.find(file_.string()) != std::string::npos, message);
                            require(message.find(reason) != std::string::npos, message);
                        }),
                  0);
        EXPECT_EQ(listing(folder_.std()), before);
    }

    fs::path file_ = folder_ / "p/file";
};

TEST_P(AttributesTest, WhoChangesAFileTakesItFromNobody) {
    give(file_, alice, team, 0660);
    EXPECT_EQ(changeAs(bob), 0);
    EXPECT_EQ(readBytes(file_), "new");
    EXPECT_EQ(modeOf(file_), 0660U);
    EXPECT_EQ(statusOf(file_).st_gid, team);
    EXPECT_EQ(changeAs(alice), 0);

    // A stranger cannot keep the group. That matters where it has other permissions than everybody.
    const User stranger{12347, 12347, {}, 022};
    give(file_, alice, team, 0666);
    EXPECT_EQ(changeAs(stranger), 0);
    EXPECT_EQ(modeOf(file_), 0666U);
    give(file_, alice, team, 0646);
    expectRefused(stranger, "its group cannot be kept");
    give(file_, stranger, team, 0664);
    expectRefused(stranger, "its group cannot be kept");
    // The group may write only, and the owner could read.
    give(file_, alice, team, 0620);
    expectRefused(bob, "its owner is another user");
    // The superuser gives everything back.
    give(file_, alice, team, 0640);
    GetParam().apply(file_);
    EXPECT_EQ(modeOf(file_), 0640U);
    EXPECT_EQ(statusOf(file_).st_uid, alice.id);
    EXPECT_EQ(statusOf(file_).st_gid, team);
}

TEST_P(AttributesTest, WhatReplacesAPrivateFileIsPrivateFromTheStart) {
    writeBytes(folder_ / "p/public", "old");
    give(file_, alice, alice.group, 0600);
    const auto look = [](const fs::path& staged) {
        writeBytes(staged, "new");
        EXPECT_EQ(modeOf(staged) & 0077U, 0U) << "others may look into what replaces a private file";
    };
    if (GetParam().apply == changeAlone)
        return store_support::replaceFile(toPath(file_), [&](const host::Path& staged) { look(toStd(staged)); });
    store_support::FileBatch batch;
    batch.folder = toPath(file_.parent_path());
    batch.filesToWrite = {toPath(file_), toPath(folder_ / "p/public")};
    batch.write = [&](std::size_t, const host::Path& staged) { look(toStd(staged)); };
    commit(batch, FolderLock(batch.folder));
    EXPECT_EQ(modeOf(file_), 0600U);
    EXPECT_EQ(modeOf(folder_ / "p/public"), 0644U);
}

/// An access list in the form of the system: its version, and a tag, permissions and a number for each entry.
std::string accessList(const std::vector<std::array<unsigned, 3>>& entries) {
    std::string bytes{2, 0, 0, 0};
    for (const auto& [tag, permissions, id] : entries) {
        for (const auto& [value, size] : {std::pair(tag, 2), std::pair(permissions, 2), std::pair(id, 4)}) {
            for (int i = 0; i < size; ++i)
                bytes += static_cast<char>(value >> (8 * i) & 0xffU);
        }
    }
    return bytes;
}

constexpr unsigned nobodyInParticular = 0xffffffff;
constexpr const char* accessListName = "system.posix_acl_access";

std::string listOf(unsigned owner, unsigned user, unsigned group, unsigned mask, unsigned others, uid_t named = 1234) {
    return accessList({{1, owner, nobodyInParticular},
                       {2, user, named},
                       {4, group, nobodyInParticular},
                       {16, mask, nobodyInParticular},
                       {32, others, nobodyInParticular}});
}

void setAttribute(const fs::path& file, const char* name, const std::string& value) {
    if (setxattr(file.c_str(), name, value.data(), value.size(), 0) != 0)
        throw std::runtime_error("cannot set " + std::string(name) + ": " + std::strerror(errno));
}

std::string attributeOf(const fs::path& file, const char* name) {
    std::array<char, 4096> value{};
    const ssize_t size = getxattr(file.c_str(), name, value.data(), value.size());
    return size < 0 ? "none" : std::string(value.data(), static_cast<std::size_t>(size));
}

TEST_P(AttributesTest, AccessListsAndAttributesAreKept) {
    const std::string list = listOf(6, 6, 4, 6, 0);
    give(file_, alice, team, 0640);
    if (setxattr(file_.c_str(), accessListName, list.data(), list.size(), 0) != 0 && errno == ENOTSUP)
        GTEST_SKIP() << "no access lists on this file system";
    setAttribute(file_, accessListName, list);
    setAttribute(file_, "user.note", "mine");
    setAttribute(file_, "user.empty", "");
    EXPECT_EQ(modeOf(file_), 0660U);
    const auto expectKept = [&](mode_t mode) {
        EXPECT_EQ(readBytes(file_), "new");
        EXPECT_EQ(modeOf(file_), mode);
        EXPECT_EQ(attributeOf(file_, accessListName), list) << "the group may write now";
        EXPECT_EQ(attributeOf(file_, "user.note"), "mine");
        EXPECT_EQ(attributeOf(file_, "user.empty"), "");
    };
    EXPECT_EQ(changeAs(alice), 0);
    expectKept(0660);

    // Whom only the list lets in can keep neither owner nor group.
    const User listed{1234, 1234, {}, 022};
    expectRefused(listed, "its group cannot be kept");
    setAttribute(file_, accessListName, listOf(6, 6, 4, 6, 4));
    expectRefused(listed, "its owner is another user");
    const std::string both = accessList({{1, 6, nobodyInParticular},
                                         {2, 6, alice.id},
                                         {2, 6, listed.id},
                                         {4, 4, nobodyInParticular},
                                         {16, 6, nobodyInParticular},
                                         {32, 4, nobodyInParticular}});
    setAttribute(file_, accessListName, both);
    EXPECT_EQ(changeAs(listed), 0);
    EXPECT_EQ(attributeOf(file_, accessListName), both);
    EXPECT_EQ(changeAs(alice), 0);

    // A file without a list gets none from its folder.
    removexattr(file_.c_str(), accessListName);
    give(file_, alice, team, 0660);
    setAttribute(file_.parent_path(), "system.posix_acl_default", listOf(7, 7, 7, 7, 7));
    EXPECT_EQ(changeAs(alice), 0);
    EXPECT_EQ(attributeOf(file_, accessListName), "none");
    EXPECT_EQ(modeOf(file_), 0660U);
}

INSTANTIATE_TEST_SUITE_P(Changes, AttributesTest,
                         testing::Values(Change{"Batch", changeInBatch}, Change{"Alone", changeAlone}),
                         [](const auto& param) { return std::string(param.param.name); });

/// A project in the folder `folder_/p`.
class SharedProjectTest : public PermissionsTest, public testing::WithParamInterface<std::u16string> {
protected:
    SharedProjectTest() {
        fs::create_directory(root_);
        project::metadata::getRegisteredFactories();  // another user may not be allowed to load them
    }

    void set(const std::vector<std::u16string>& names, const std::u16string& value) const {
        openStore(GetParam(), toPath(root_))->setNode(path(names), *node(value));
    }

    void requireValue(const std::vector<std::u16string>& names, const std::u16string& value) const {
        const auto found = openStore(GetParam(), toPath(root_))->getNode(path(names));
        require(found && found->get(u"Value") == value, "not the value " + host::toUtf8(value));
    }

    fs::path root_ = folder_ / "p";
    fs::path metadata_ = root_ / "resources/project";
};

TEST_P(SharedProjectTest, ColleaguesChangeItInTurn) {
    give(root_, alice, team, 0770);
    EXPECT_EQ(runAs(alice,
                    [&] {
                        set({u"x", u"a"}, u"1");
                        set({u"x", u"b"}, u"1");
                    }),
              0);
    for (const User* user : {&bob, &alice, &bob}) {
        EXPECT_EQ(runAs(*user,
                        [&] {
                            requireValue({u"x", u"b"}, u"1");
                            set({u"x", u"a"}, number(static_cast<int>(user->id)));
                            requireValue({u"x", u"a"}, number(static_cast<int>(user->id)));
                        }),
                  0);
    }
}

TEST_P(SharedProjectTest, ANarrowMaskLocksNobodyOut) {
    give(root_, alice, team, 02770);
    EXPECT_EQ(runAs(alice, [&] { set({u"x"}, u"1"); }), 0);
    for (const mode_t mask : {007U, 077U, 0177U}) {
        User narrow = alice;
        narrow.mask = mask;
        EXPECT_EQ(runAs(narrow, [&] { set({u"x"}, u"2"); }), 0) << mask;
        for (const User* user : {&alice, &bob}) {
            EXPECT_EQ(runAs(*user,
                            [&] {
                                requireValue({u"x"}, u"2");
                                set({u"x"}, u"1");
                                set({u"x"}, u"2");
                            }),
                      0)
                << mask;
        }
    }
}

TEST_P(SharedProjectTest, AFirstChangeThatIsRefusedLeavesNothing) {
    // Not even the folders that it has made can be used.
    give(root_, alice, team, 0770);
    User narrow = alice;
    narrow.mask = 0177;
    EXPECT_NE(runAs(narrow, [&] { set({u"x"}, u"1"); }), 0);
    EXPECT_EQ(listing(root_), "");
    EXPECT_EQ(runAs(alice, [&] { set({u"x"}, u"1"); }), 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, SharedProjectTest, testing::ValuesIn(fileStores()), nameOfStore);

class SharedFolderTest : public PermissionsTest {
protected:
    SharedFolderTest() {
        for (const char* name : {"a", "b"})
            writeBytes(metadata_ / name, "old");
    }

    void SetUp() override {
        PermissionsTest::SetUp();
        give(metadata_, alice, team, 0770);
        for (const char* name : {"a", "b"})
            give(metadata_ / name, alice, team, 0660);
    }

    /// A change of both files.
    store_support::FileBatch makeBatch(const std::string& content) const {
        store_support::FileBatch batch;
        batch.folder = toPath(metadata_);
        batch.filesToWrite = {toPath(metadata_ / "a"), toPath(metadata_ / "b")};
        batch.write = [content](std::size_t, const host::Path& staged) { writeBytes(toStd(staged), content); };
        return batch;
    }

    fs::path metadata_ = folder_ / "m";
};

/// Somebody who lets others do little, and may be stopped and killed while he makes change after change.
class Careful {
public:
    Careful(const User& user, const std::function<void()>& change) : id_(fork()) {
        if (id_ != 0)
            return;
        try {
            become(user);
            for (;;)
                change();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child process: %s\n", error.what());
        }
        _exit(1);
    }
    ~Careful() {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }

    Careful(const Careful&) = delete;
    Careful& operator=(const Careful&) = delete;

    /// Kills it at a moment when `isRight` holds. @return whether there was one in some seconds
    bool killWhen(const std::function<bool()>& isRight) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end) {
            if (!isRight())
                continue;
            kill(id_, SIGSTOP);
            int status = 0;
            waitpid(id_, &status, WUNTRACED);
            if (WIFSTOPPED(status) && isRight())
                return kill(id_, SIGKILL) == 0;
            kill(id_, SIGCONT);
        }
        return false;
    }

private:
    pid_t id_;
};

TEST_F(SharedFolderTest, AColleagueCompletesWhatWasLeftUnderANarrowMask) {
    User narrow = bob;
    narrow.mask = 077;
    for (const char* left : {".pending/journal", ".pending/new/1", ".pending/new", ".pending"}) {
        {
            const Careful writer(narrow, [this] { commit(makeBatch("new"), FolderLock(toPath(metadata_))); });
            ASSERT_TRUE(writer.killWhen([&] { return fs::exists(fs::symlink_status(metadata_ / left)); })) << left;
        }
        EXPECT_EQ(runAs(alice,
                        [&] {
                            const auto folder = toPath(metadata_);
                            store_support::settle(folder);
                            require(!store_support::findJournalDamage(folder), "a damaged journal");
                            require(!store_support::isInterrupted(folder), "not settled");
                            require(readBytes(metadata_ / "a") == readBytes(metadata_ / "b"), "half a change");
                            commit(makeBatch("newer"), FolderLock(folder, std::chrono::milliseconds(0)));
                        }),
                  0)
            << left;
        EXPECT_EQ(readBytes(metadata_ / "b"), "newer");
        EXPECT_FALSE(fs::exists(metadata_ / ".pending"));
    }
    // Who is killed at once has not let anybody in yet.
    for (const char* closed : {".pending", ".pending/new"}) {
        for (const char* made : {".pending", ".pending/new"}) {
            fs::create_directory(metadata_ / made);
            give(metadata_ / made, narrow, narrow.group, fs::path(made) == closed ? 0700 : 0777);
            if (fs::path(made) == closed)
                break;
        }
        EXPECT_EQ(runAs(alice, [&] { store_support::settle(toPath(metadata_)); }), 0) << closed;
        EXPECT_EQ(runAs(alice, [&] { FolderLock(toPath(metadata_)).release(); }), 0) << closed;
        EXPECT_FALSE(fs::exists(metadata_ / ".pending"));
    }
}

TEST_F(SharedFolderTest, AReaderWaitsForAChangeThatHeMayNotLookInto) {
    for (const mode_t mode : {0770U, 0750U}) {
        give(metadata_, alice, team, mode);
        std::optional<FolderLock> lock(toPath(metadata_));
        fs::create_directory(metadata_ / ".pending");
        fs::permissions(metadata_ / ".pending", fs::perms::owner_all);
        ChildProcess reader([&] {
            become(bob);
            require(store_support::isInterrupted(toPath(metadata_)), "not seen");
            store_support::settle(toPath(metadata_));
            require(!fs::exists(metadata_ / ".pending"), "not waited for");
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        fs::remove(metadata_ / ".pending");
        lock.reset();
        EXPECT_EQ(reader.wait(), 0) << mode;
    }
}

TEST_F(SharedFolderTest, WhatCannotBeFlushedIsNotChanged) {
    // Who may not list a folder cannot open it.
    const auto replace = [this] { store_support::replaceFile(toPath(metadata_ / "sub/a"), "new"); };
    auto batch = makeBatch("new");
    batch.filesToWrite = {toPath(metadata_ / "sub/a")};
    writeBytes(metadata_ / "sub/a", "old");
    give(metadata_ / "sub/a", alice, team, 0660);
    give(metadata_ / "sub", alice, team, 0311);
    const auto commitOne = [&] { commit(batch, FolderLock(toPath(metadata_))); };
    for (const auto& change : {std::function<void()>(replace), std::function<void()>(commitOne)}) {
        EXPECT_EQ(runAs(alice,
                        [&] {
                            const std::string message = messageOf<MetadataWriteFailure>(change);
                            require(message.find("Permission denied") != std::string::npos, message);
                        }),
                  0);
        EXPECT_EQ(readBytes(metadata_ / "sub/a"), "old");
    }
    fs::permissions(metadata_ / "sub", fs::perms(0755));
    EXPECT_EQ(std::distance(fs::directory_iterator(metadata_ / "sub"), {}), 1) << "a scratch file is left";
    EXPECT_FALSE(fs::exists(metadata_ / ".pending"));
}

}  // namespace
