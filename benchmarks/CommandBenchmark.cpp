// What people wait for when they use the command on a folder that it has scanned, next to what they would do with the
// same files instead.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/Benchmarks.hpp"
#include "benchmarks/Generated.hpp"
#include "benchmarks/Measuring.hpp"
#include "benchmarks/Process.hpp"
#include "host/Text.hpp"

namespace benchmarks {

namespace {

namespace fs = std::filesystem;

constexpr int folderCount = 100;

/// Makes `root` with folders of as many files each, all of different sizes in their folder.
void makeFiles(const fs::path& root, int filesEach) {
    for (int i = 0; i < folderCount; ++i) {
        const fs::path folder = root / ("folder" + std::to_string(i));
        fs::create_directories(folder);
        for (int j = 0; j < filesEach; ++j)
            std::ofstream(folder / ("file" + std::to_string(j) + ".c"))
                << std::string(static_cast<std::size_t>(j), 'x');
    }
}

/// A project of the store named `store` with `count` files that were scanned, made when it is first needed. There is
/// one for each `use`: what is moved in one must not be new to the next scan of another.
std::string scanned(const std::string& store, int count, const std::string& use = "scanned_") {
    const fs::path root = fs::path(scratchFolder().accessName()) / (use + store + std::to_string(count));
    if (!fs::exists(root)) {
        makeFiles(root, count / folderCount);
        run({findCommand(), "init", root, "--store", store});
        run({findCommand(), "-C", root, "scan"});
    }
    return root;
}

/// The same files in a repository of git.
std::string committed(int count) {
    const fs::path root = fs::path(scratchFolder().accessName()) / ("committed" + std::to_string(count));
    if (!fs::exists(root)) {
        makeFiles(root, count / folderCount);
        // git reads a file again whenever it changed in the second in which the index was written.
        std::this_thread::sleep_for(std::chrono::seconds(1));
        run({"git", "init", "--quiet", root});
        run({"git", "-C", root, "add", "--all"});
        run({"git", "-C", root, "-c", "user.name=x", "-c", "user.email=x@localhost", "commit", "--quiet", "-m", "x"});
        run({"git", "-C", root, "status"});  // which takes down when it looked
    }
    return root;
}

/// Registers what the program that `words` makes takes; `words` is called for each run anew, before its time is taken.
void addProgram(const std::string& name, const std::function<std::vector<std::string>()>& words) {
    add(name, 1, [=](benchmark::State& state) {
        for (auto _ : state)
            timedRun(state, words());
    });
}

void addStore(const std::string& store, int count) {
    const std::string end = "_" + store + "/" + std::to_string(count) + "/project_metadata";
    const auto addCommand = [&](const std::string& name, const std::vector<std::string>& words) {
        addProgram("command_" + name + end, [=] {
            std::vector<std::string> command{findCommand(), "-C", scanned(store, count)};
            command.insert(command.end(), words.begin(), words.end());
            return command;
        });
    };
    addCommand("find", {"find", "--attribute", "Size=77"});
    addCommand("scan", {"scan"});
    addCommand("report", {"report", "--replace", "--output", (scratchFolder() / u"report.html").accessName()});
    addProgram("command_set" + end, [=] {
        static int revision = 0;  // no node is set to what it is
        const std::string value = "Revision=" + std::to_string(++revision);
        return std::vector<std::string>{
            findCommand(), "-C", scanned(store, count, "edited_"), "set", "Folder:folder7|File:file7.c", value};
    });
    addProgram("command_move" + end, [=, isThere = false]() mutable {
        const std::string names[] = {"Folder:folder8|File:file8.c", "Folder:folder8|File:moved.c"};
        isThere = !isThere;
        return std::vector<std::string>{
            findCommand(),         "-C", scanned(store, count, "edited_"), "move", names[isThere ? 0 : 1],
            names[isThere ? 1 : 0]};
    });
}

}  // namespace

void addCommandBenchmarks() {
    for (const int count : {10'000, 100'000}) {
        for (const char* store : {"fixedPath", "monolithic", "sqlite"})
            addStore(store, count);
        const std::string end = "/" + std::to_string(count) + "/";
        addProgram("command_find" + end + "grep", [=] {
            const std::string files = scanned("fixedPath", count) + "/resources/project";
            return std::vector<std::string>{"grep", "--recursive", "--files-with-matches", " Size=\"77\"", files};
        });
        addProgram("command_scan" + end + "git_status", [=] {
            return std::vector<std::string>{"git", "-C", committed(count), "status"};
        });
    }
}

}  // namespace benchmarks
