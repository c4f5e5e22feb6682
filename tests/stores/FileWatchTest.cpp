// Whatever is done to a file that is watched is noticed when it is asked for next.

#include "store_support/FileWatch.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "tests/support/TempFolder.hpp"

using namespace test;
using store_support::FileWatch;
using store_support::getFileVersion;
namespace fs = std::filesystem;

namespace {

void write(const fs::path& file, const std::string& text) {
    std::ofstream(file) << text;
}

struct Step {
    const char* name;
    std::function<void(const fs::path& file)> take;
};

const Step steps[] = {
    {"nothing", [](const fs::path& /*file*/) {}},
    {"written in place", [](const fs::path& file) { write(file, "longer"); }},
    {"replaced",
     [](const fs::path& file) {
         write(file.string() + ".new", "same");
         fs::rename(file.string() + ".new", file);
     }},
    {"replaced while it has another name",
     [](const fs::path& file) {
         fs::create_hard_link(file, file.string() + ".old");
         write(file.string() + ".new", "same");
         fs::rename(file.string() + ".new", file);
     }},
    {"removed", [](const fs::path& file) { fs::remove(file); }},
    {"put aside", [](const fs::path& file) { fs::rename(file, file.string() + ".aside"); }},
};

TEST(FileWatchTest, noticesAtOnceWhateverIsDoneToTheFile) {
    for (const Step& step : steps) {
        for (const bool isFirstLook : {true, false}) {
            const TempFolder folder;
            const fs::path file = folder / "file";
            write(file, "some");
            // What follows does so in another tick of the clock of files.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            FileWatch watch(toPath(file), getFileVersion(toPath(file)));
            if (!isFirstLook) {
                EXPECT_TRUE(watch.isUnchanged());
                EXPECT_TRUE(watch.isUnchanged());
            }
            step.take(file);
            EXPECT_EQ(watch.isUnchanged(), step.name == std::string("nothing")) << step.name;
        }
    }
}

TEST(FileWatchTest, noticesAFileThatAppearsAndAFolderThatIsSwapped) {
    const TempFolder folder;
    const fs::path file = folder / "a/file";
    FileWatch none(toPath(file), std::nullopt);
    EXPECT_TRUE(none.isUnchanged());
    for (const char* name : {"a", "b"}) {
        fs::create_directory(folder / name);
        write(folder / name / "file", "some");
    }
    EXPECT_FALSE(none.isUnchanged());
    FileWatch watch(toPath(file), getFileVersion(toPath(file)));
    EXPECT_TRUE(watch.isUnchanged());
    fs::rename(folder / "a", folder / "c");
    fs::rename(folder / "b", folder / "a");
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_FALSE(watch.isUnchanged());
}

}  // namespace
