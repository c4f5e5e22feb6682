// Batches of file changes, their journal and the lock of a metadata folder.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/FileBatch.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

using namespace test;
using project::metadata::MetadataWriteFailure;
using store_support::FolderLock;

namespace {

class FileBatchTest : public testing::Test {
protected:
    FileBatchTest() {
        writeBytes(folder_ / "m/replaced", "old");
        writeBytes(folder_ / "m/removed", "old");
        before_ = files();
    }

    /// Every file below the metadata folder with its content.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> result;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(metadata())) {
            if (entry.is_regular_file())
                result[entry.path().lexically_relative(metadata()).string()] = readBytes(entry.path());
        }
        return result;
    }

    store_support::FileBatch makeBatch(const std::vector<std::string>& names) const {
        store_support::FileBatch batch;
        batch.folder = toPath(metadata());
        for (const std::string& name : names)
            batch.filesToWrite.push_back(toPath(metadata() / name));
        batch.write = [](std::size_t, const host::Path& staged) { writeBytes(toStd(staged), "new"); };
        return batch;
    }

    void commit(const store_support::FileBatch& batch) const { store_support::commit(batch, FolderLock(batch.folder)); }

    std::filesystem::path metadata() const { return folder_ / "m"; }

    TempFolder folder_;
    std::map<std::string, std::string> before_;
};

TEST_F(FileBatchTest, ReplacesCreatesAndRemoves) {
    auto batch = makeBatch({"replaced", "sub/new"});
    batch.filesToRemove = {toPath(metadata() / "removed")};
    std::filesystem::permissions(metadata() / "replaced", std::filesystem::perms(0640));
    commit(batch);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{"replaced", "new"}, {"sub/new", "new"}}));
    EXPECT_EQ(std::filesystem::status(metadata() / "replaced").permissions(), std::filesystem::perms(0640));
    EXPECT_FALSE(std::filesystem::exists(metadata() / ".pending"));
}

TEST_F(FileBatchTest, ReplacesNothingThatIsInTheWay) {
    std::filesystem::create_directories(metadata() / "folder");
    std::filesystem::create_directory_symlink(folder_.std(), metadata() / "link");
    for (const char* name : {"folder", "removed/below a file", "link/elsewhere"}) {
        const std::string message = messageOf<MetadataWriteFailure>([&] { commit(makeBatch({"replaced", name})); });
        EXPECT_NE(message.find(metadata().string()), std::string::npos) << message;
        EXPECT_EQ(files(), before_);
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "elsewhere"));
    EXPECT_FALSE(std::filesystem::exists(metadata() / ".pending"));
}

/// As a process leaves it that is killed after the first `done` steps of a batch.
class InterruptedBatchTest : public FileBatchTest, public testing::WithParamInterface<int> {
protected:
    void leave(const std::string& journalName) const {
        const auto scratch = metadata() / ".pending";
        using namespace std::string_literals;
        writeBytes(scratch / journalName, "project_metadata batch 1\nRreplaced\0Ccreated\0Dremoved\0"s);
        std::filesystem::create_directories(scratch / "old");
        for (const char* number : {"0", "1"})
            writeBytes(scratch / "new" / number, "new");
        if (GetParam() > 0) {
            std::filesystem::create_hard_link(metadata() / "replaced", scratch / "old/0");
            std::filesystem::rename(scratch / "new/0", metadata() / "replaced");
        }
        if (GetParam() > 1)
            std::filesystem::rename(scratch / "new/1", metadata() / "created");
        if (GetParam() > 2)
            std::filesystem::rename(metadata() / "removed", scratch / "old/2");
    }
};

TEST_P(InterruptedBatchTest, IsCarriedOnInItsDirection) {
    leave("journal");
    store_support::settle(toPath(metadata()));
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{"replaced", "new"}, {"created", "new"}}));
    std::filesystem::remove(metadata() / "created");
    writeBytes(metadata() / "replaced", "old");
    writeBytes(metadata() / "removed", "old");
    leave("journal-back");
    store_support::settle(toPath(metadata()));
    EXPECT_EQ(files(), before_);
    leave("draft");
    if (GetParam() == 0) {
        const FolderLock lock(toPath(metadata()));
        EXPECT_FALSE(std::filesystem::exists(metadata() / ".pending"));
    }
}

TEST_P(InterruptedBatchTest, IsTakenBackWhereItCannotBeCompleted) {
    leave("journal");
    // The last step fails: what is to be removed has become a folder, and a file keeps its place in the attic.
    std::filesystem::remove_all(metadata() / ".pending/old/2");
    std::filesystem::remove(metadata() / "removed");
    std::filesystem::create_directories(metadata() / "removed/by now a folder");
    writeBytes(metadata() / ".pending/old/2", "");
    EXPECT_THROW(store_support::settle(toPath(metadata())), project::metadata::MetadataReadFailure);
    std::filesystem::remove_all(metadata() / "removed");
    writeBytes(metadata() / ".pending/old/2", "old");
    store_support::settle(toPath(metadata()));
    EXPECT_EQ(files(), before_);
}

INSTANTIATE_TEST_SUITE_P(StepsDone, InterruptedBatchTest, testing::Range(0, 4));

TEST_F(FileBatchTest, AJournalFromElsewhereHarmsNobody) {
    writeBytes(folder_ / "victim", "mine");
    std::filesystem::create_directory_symlink(folder_.std(), metadata() / "link");
    using namespace std::string_literals;
    for (const std::string& content :
         {"D../victim\0"s, "Dlink/victim\0"s, "D/etc/passwd\0"s, "Dremoved"s, "Xremoved\0"s, "D\0"s, "\0"s}) {
        writeBytes(metadata() / ".pending/journal", "project_metadata batch 1\n" + content);
        std::filesystem::create_directories(metadata() / ".pending/old");
        std::filesystem::create_directories(metadata() / ".pending/new");
        // Who only reads is let through, and told about it when he asks.
        const auto folder = toPath(metadata());
        store_support::settle(folder);
        const auto damage = store_support::findJournalDamage(folder);
        ASSERT_TRUE(damage);
        EXPECT_EQ(toStd(damage->file), metadata() / ".pending/journal");
        const std::string message = messageOf<MetadataWriteFailure>([&] { FolderLock lock(folder); });
        EXPECT_NE(message.find(".pending/journal"), std::string::npos) << message;
        EXPECT_TRUE(std::filesystem::exists(metadata() / "removed"));
        EXPECT_EQ(readBytes(folder_ / "victim"), "mine");
    }
}

TEST_F(FileBatchTest, TheLockIsWaitedForAndNamed) {
    const auto folder = toPath(metadata());
    auto held = std::make_optional<FolderLock>(folder);
    const std::string message =
        messageOf<MetadataWriteFailure>([&] { FolderLock(folder, std::chrono::milliseconds(30)); });
    EXPECT_NE(message.find((metadata() / ".lock").string()), std::string::npos) << message;
    std::thread other([&] { held.reset(); });
    FolderLock(folder).release();
    other.join();
    // One that belongs to somebody else is waited for.
    {
        writeBytes(metadata() / ".lock", "");
        const int descriptor = open((metadata() / ".lock").c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
        std::filesystem::permissions(metadata(), std::filesystem::perms::all);
        const UnprivilegedUser user;
        const std::string told =
            messageOf<MetadataWriteFailure>([&] { FolderLock(folder, std::chrono::milliseconds(30)); });
        EXPECT_NE(told.find("process " + std::to_string(getpid()) + ","), std::string::npos) << told;
        close(descriptor);
    }
    // What a killed process leaves holds nobody up.
    writeBytes(metadata() / ".lock", "");
    FolderLock(folder, std::chrono::milliseconds(0)).release();
    EXPECT_EQ(files(), before_);
}

TEST_F(FileBatchTest, FoldersThatAreMadeForNothingGoAgain) {
    const auto folder = toPath(folder_ / "new/resources/project");
    FolderLock(folder).release();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "new"));
    {
        const FolderLock lock(folder);
        writeBytes(folder_ / "new/somebody's", "");
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "new/resources"));
    EXPECT_TRUE(std::filesystem::exists(folder_ / "new/somebody's"));
    // What was there stays, empty or not.
    std::filesystem::create_directories(folder_ / "new/resources");
    FolderLock(folder).release();
    EXPECT_TRUE(std::filesystem::is_empty(folder_ / "new/resources"));

    // Whoever waits for a folder that goes makes it himself.
    std::vector<std::unique_ptr<ChildProcess>> others;
    for (int i = 0; i < 3; ++i) {
        others.push_back(std::make_unique<ChildProcess>([&] {
            for (int j = 0; j < 300; ++j)
                FolderLock(folder).release();
        }));
    }
    for (const auto& other : others)
        EXPECT_EQ(other->wait(), 0);
}

}  // namespace
