#include <gtest/gtest.h>

#include "stores/common/FileBatch.hpp"
#include "tests/support/TempFolder.hpp"

using test::readBytes;
using test::TempFolder;
using test::toPath;
using test::toStd;
using test::writeBytes;

namespace {

TEST(FileBatchTest, AFailureOnTheWayTakesEverythingBack) {
    const TempFolder folder;
    writeBytes(folder / "m/replaced", "old");
    writeBytes(folder / "m/removed", "old");
    std::filesystem::create_directories(folder / "m/blocked/by a folder");
    stores::FileBatch batch;
    batch.folder = toPath(folder / "m");
    for (const char* name : {"m/replaced", "m/sub/new", "m/blocked"})
        batch.filesToWrite.push_back(toPath(folder / name));
    batch.filesToRemove = {toPath(folder / "m/removed")};
    batch.write = [](std::size_t, const host::Path& staged) { writeBytes(toStd(staged), "new"); };
    EXPECT_ANY_THROW(stores::commit(batch));
    EXPECT_EQ(readBytes(folder / "m/replaced"), "old");
    EXPECT_EQ(readBytes(folder / "m/removed"), "old");
    EXPECT_FALSE(std::filesystem::exists(folder / "m/sub/new"));

    batch.filesToWrite.pop_back();
    stores::commit(batch);
    EXPECT_EQ(readBytes(folder / "m/replaced"), "new");
    EXPECT_EQ(readBytes(folder / "m/sub/new"), "new");
    EXPECT_FALSE(std::filesystem::exists(folder / "m/removed"));
    for (const auto& entry : std::filesystem::directory_iterator(folder / "m"))
        EXPECT_EQ(entry.path().filename().string().rfind(".pending", 0), std::string::npos) << "scratch folder left";
}

}  // namespace
