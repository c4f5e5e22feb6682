// What the machine may leave when its power fails: any part of what has not been flushed, in any order. The change is
// recorded, and for every moment in it the states that the disk may be in are made and opened.
//
// The model is strict. Each entry of a folder, and each write to a file, reaches the disk by itself at any time; a
// rename takes both of its entries there at once; flushing a file takes its bytes there, but not its name; flushing a
// folder takes its own entries there, but not its name in the folder above; flushing the file system takes everything.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>

#include "tests/faults/Scenarios.hpp"
#include "tests/faults/SystemFaults.hpp"
#include "tests/support/ChildProcess.hpp"

using namespace test;

namespace {

namespace fs = std::filesystem;

/// A file or a folder, known by a number.
using Inode = int;

/// A step of a change, as far as the disk is concerned. Folders and files are told by their inodes: their names change.
struct DiskStep {
    enum class Kind { link, unlink, rename, write, truncate, flushFile, flushFolder, flushAll } kind;
    Inode folder = 0;        ///< where the entry is
    std::string name{};      ///< of the entry
    Inode inode = 0;         ///< what the entry leads to; what is written or flushed
    Inode newFolder = 0;     ///< for a rename
    std::string newName{};   ///< likewise
    std::size_t offset = 0;  ///< for a write; the new size for a truncation
    std::string bytes{};
};

struct Disk {
    std::map<Inode, std::map<std::string, Inode>> folders;
    std::map<Inode, std::string> files;

    void apply(const DiskStep& step) {
        switch (step.kind) {
            case DiskStep::Kind::link:
                folders[step.folder][step.name] = step.inode;
                break;
            case DiskStep::Kind::unlink:
                folders[step.folder].erase(step.name);
                break;
            case DiskStep::Kind::rename: {
                auto& entries = folders[step.folder];
                if (const auto entry = entries.find(step.name); entry != entries.end() && entry->second == step.inode)
                    entries.erase(entry);
                folders[step.newFolder][step.newName] = step.inode;
                break;
            }
            case DiskStep::Kind::write: {
                std::string& content = files[step.inode];
                content.resize(std::max(content.size(), step.offset + step.bytes.size()), '\0');
                content.replace(step.offset, step.bytes.size(), step.bytes);
                break;
            }
            case DiskStep::Kind::truncate:
                files[step.inode].resize(step.offset, '\0');
                break;
            default:
                break;
        }
    }

    bool isFolder(Inode inode) const { return folders.count(inode) != 0; }

    /// The whole tree below `inode` as one text.
    std::string describe(Inode inode, const std::string& name = "") const {
        if (!isFolder(inode)) {
            const auto file = files.find(inode);
            return name + " " + (file == files.end() ? "" : file->second) + "\n";
        }
        std::string text = name + "/\n";
        for (const auto& [child, childInode] : folders.at(inode))
            text += describe(childInode, name + "/" + child);
        return text;
    }

    void make(Inode inode, const fs::path& place) const {
        if (!isFolder(inode)) {
            const auto file = files.find(inode);
            return writeBytes(place, file == files.end() ? "" : file->second);
        }
        fs::create_directories(place);
        for (const auto& [child, childInode] : folders.at(inode))
            make(childInode, place / child);
    }
};

/// Follows the recorded calls on the disk as programs see it, and turns them into steps.
class Follower {
public:
    Follower(const fs::path& root, const fs::path& content) : root_(root.string()) {
        live_.folders[rootInode];
        load(rootInode, content);
        start_ = live_;
    }

    static constexpr Inode rootInode = 1;

    void follow(const std::vector<RecordedCall>& calls) {
        for (const RecordedCall& call : calls)
            follow(call);
    }

    const Disk& start() const { return start_; }
    const Disk& end() const { return live_; }
    const std::vector<DiskStep>& steps() const { return steps_; }

private:
    struct Place {
        Inode folder;
        std::string name;
    };

    struct OpenFile {
        Inode inode;
        std::size_t position;
        std::string path;
    };

    void load(Inode folder, const fs::path& from) {
        for (const auto& entry : fs::directory_iterator(from)) {
            const Inode inode = ++lastInode_;
            live_.folders[folder][entry.path().filename()] = inode;
            if (entry.is_directory()) {
                live_.folders[inode];
                load(inode, entry.path());
            } else {
                live_.files[inode] = readBytes(entry.path());
            }
        }
    }

    /// No value for what lies elsewhere.
    std::optional<Place> find(const std::string& path) const {
        if (path.compare(0, root_.size(), root_) != 0)
            return std::nullopt;
        const fs::path relative = fs::path(path).lexically_relative(root_);
        Inode folder = rootInode;
        for (const fs::path& part : relative.parent_path())
            folder = live_.folders.at(folder).at(part);
        return Place{folder, relative.filename()};
    }

    Inode inodeAt(const Place& place) const {
        if (place.name == ".")
            return place.folder;
        const auto& entries = live_.folders.at(place.folder);
        const auto entry = entries.find(place.name);
        return entry == entries.end() ? 0 : entry->second;
    }

    void add(const DiskStep& step) {
        live_.apply(step);
        steps_.push_back(step);
    }

    Inode make(const Place& place, bool isFolder) {
        const Inode inode = ++lastInode_;
        if (isFolder) {
            live_.folders[inode];
            start_.folders[inode];  // what it holds does not matter as long as nothing leads to it
        }
        add({DiskStep::Kind::link, place.folder, place.name, inode});
        return inode;
    }

    void followOpening(const RecordedCall& call, const std::string& path) {
        const auto place = find(path);
        open_.erase(call.result);
        if (!place || (call.flags & O_TMPFILE) == O_TMPFILE)
            return;
        Inode inode = inodeAt(*place);
        if (inode == 0)
            inode = make(*place, false);
        else if ((call.flags & O_TRUNC) != 0)
            add({DiskStep::Kind::truncate, 0, "", inode});
        open_[call.result] = {inode, 0, path};
    }

    void followDescriptor(const RecordedCall& call) {
        const auto open = open_.find(call.descriptor);
        if (open == open_.end())
            return;
        OpenFile& file = open->second;
        if (call.name == "close") {
            open_.erase(open);
        } else if (call.name == "write" || call.name == "writev" || call.name == "pwrite") {
            const std::size_t offset = call.offset >= 0 ? static_cast<std::size_t>(call.offset) : file.position;
            add({DiskStep::Kind::write, 0, "", file.inode, 0, "", offset, call.bytes});
            if (call.offset < 0)
                file.position += call.bytes.size();
        } else if (call.name == "read") {
            file.position += static_cast<std::size_t>(call.result);
        } else if (call.name == "ftruncate") {
            add({DiskStep::Kind::truncate, 0, "", file.inode, 0, "", static_cast<std::size_t>(call.offset), ""});
        } else if (call.name == "fsync" || call.name == "fdatasync") {
            const bool isFolder = live_.isFolder(file.inode);
            add({isFolder ? DiskStep::Kind::flushFolder : DiskStep::Kind::flushFile, 0, "", file.inode});
        } else if (call.name == "syncfs") {
            add({DiskStep::Kind::flushAll});
        }
    }

    void follow(const RecordedCall& call) {
        if (call.path.empty())
            return followDescriptor(call);
        // Paths of the calls that take a folder's descriptor start there.
        const auto base = open_.find(call.descriptor);
        const bool isBelow = call.path.front() != '/' && base != open_.end();
        const std::string path = isBelow ? base->second.path + "/" + call.path : call.path;
        if (call.name == "openat" || call.name == "open")
            return followOpening(call, path);
        const bool isMake = call.name == "mkdir" || call.name == "mkdirat";
        const bool isRemoval = call.name == "unlink" || call.name == "unlinkat" || call.name == "rmdir";
        const bool isRename = call.name.compare(0, 6, "rename") == 0;
        if (!isMake && !isRemoval && !isRename && call.name != "link" && call.name != "linkat")
            return;
        const auto place = find(path);
        if (!place)
            return;
        if (isMake) {
            make(*place, true);
        } else if (isRemoval) {
            add({DiskStep::Kind::unlink, place->folder, place->name, inodeAt(*place)});
        } else {
            const Place target = find(call.target).value();
            if (isRename)
                add({DiskStep::Kind::rename, place->folder, place->name, inodeAt(*place), target.folder, target.name});
            else
                add({DiskStep::Kind::link, target.folder, target.name, inodeAt(*place)});
        }
    }

    const std::string root_;
    Disk live_;
    Disk start_;
    Inode lastInode_ = rootInode;
    std::map<int, OpenFile> open_;
    std::vector<DiskStep> steps_;
};

/// Which of the first `count` steps a flush among them has taken to the disk.
std::vector<bool> findFlushed(const std::vector<DiskStep>& steps, std::size_t count) {
    using Kind = DiskStep::Kind;
    std::vector<bool> isFlushed(count);
    for (std::size_t flush = 0; flush < count; ++flush) {
        const DiskStep& by = steps[flush];
        for (std::size_t i = 0; i < flush; ++i) {
            const DiskStep& step = steps[i];
            const bool isData = step.kind == Kind::write || step.kind == Kind::truncate;
            const bool isOfFile = by.kind == Kind::flushFile && isData && step.inode == by.inode;
            const bool isOfFolder =
                by.kind == Kind::flushFolder && !isData &&
                (step.folder == by.inode || (step.kind == Kind::rename && step.newFolder == by.inode));
            if (by.kind == Kind::flushAll || isOfFile || isOfFolder)
                isFlushed[i] = true;
        }
    }
    return isFlushed;
}

class PowerFailureTest : public testing::TestWithParam<std::tuple<std::u16string, Scenario>> {
protected:
    std::unique_ptr<MetadataManager> open(const fs::path& project) const {
        return openStore(std::get<0>(GetParam()), toPath(project));
    }

    Content snapshot(const fs::path& project) const { return test::read(*open(project)); }

    /// Carries out the change in a process of its own. @return the calls that it made
    std::vector<RecordedCall> record() const {
        const auto file = folder_ / "record";
        ChildProcess child([&] {
            trapSystemCalls();
            FaultPlan plan;
            plan.isRecording = true;
            const auto store = open(project_);
            startFaults(plan);
            scenario_.change(*store);
            stopFaults();
            std::string text;
            for (const RecordedCall& call : takeRecord()) {
                for (const std::string& field :
                     {call.name, std::to_string(call.result), std::to_string(call.descriptor),
                      std::to_string(call.flags), std::to_string(call.offset), call.path, call.target, call.bytes})
                    text += std::to_string(field.size()) + " " + field;
            }
            writeBytes(file, text);
        });
        if (child.wait() != 0)
            throw std::runtime_error("the change failed");
        const std::string text = readBytes(file);
        std::vector<RecordedCall> calls;
        std::size_t place = 0;
        const auto next = [&] {
            const std::size_t blank = text.find(' ', place);
            const std::size_t size = std::stoul(text.substr(place, blank - place));
            place = blank + 1 + size;
            return text.substr(blank + 1, size);
        };
        while (place < text.size()) {
            RecordedCall call;
            call.name = next();
            call.result = std::stoi(next());
            call.descriptor = std::stoi(next());
            call.flags = std::stoi(next());
            call.offset = std::stol(next());
            call.path = next();
            call.target = next();
            call.bytes = next();
            calls.push_back(call);
        }
        return calls;
    }

    /// The states that the disk may be in after the first `count` of `steps`: all of them if those are few, otherwise
    /// those that differ least from either end, and some at random.
    std::vector<std::vector<bool>> makeSelections(const std::vector<DiskStep>& steps, std::size_t count) {
        std::vector<bool> flushed = findFlushed(steps, count);
        std::vector<std::size_t> loose;
        for (std::size_t i = 0; i < count; ++i) {
            if (!flushed[i] && steps[i].kind < DiskStep::Kind::flushFile)
                loose.push_back(i);
        }
        std::vector<std::vector<bool>> selections;
        const auto select = [&](const auto& isTaken) {
            selections.push_back(flushed);
            for (std::size_t i = 0; i < loose.size(); ++i)
                selections.back()[loose[i]] = isTaken(i);
        };
        const bool isSoak = std::getenv("PROJECT_METADATA_SOAK") != nullptr;
        if (loose.size() <= (isSoak ? 12U : 5U)) {
            for (unsigned bits = 0; bits < 1U << loose.size(); ++bits)
                select([&](std::size_t i) { return (bits >> i & 1U) != 0; });
            return selections;
        }
        select([](std::size_t) { return true; });
        select([](std::size_t) { return false; });
        for (std::size_t one = 0; one < loose.size(); ++one) {
            select([&](std::size_t i) { return i == one; });
            select([&](std::size_t i) { return i != one; });
            select([&](std::size_t i) { return i < one; });
        }
        for (int i = 0; i < (isSoak ? 300 : 5); ++i)
            select([&](std::size_t) { return random_() % 2 == 0; });
        return selections;
    }

    const Scenario scenario_ = std::get<1>(GetParam());
    TempFolder folder_{memoryFolder()};
    const fs::path project_ = folder_ / "project";
    std::mt19937 random_{1};
};

TEST_P(PowerFailureTest, LeavesTheOldOrTheNewContent) {
    fs::create_directory(project_);
    if (scenario_.prepare)
        scenario_.prepare(*open(project_));
    const Content before = snapshot(project_);
    const auto original = folder_ / "original";
    fs::copy(project_, original, fs::copy_options::recursive);

    Follower follower(project_, original);
    follower.follow(record());
    const Content after = snapshot(project_);
    const std::vector<DiskStep>& steps = follower.steps();
    // What was followed is what happened.
    const auto check = folder_ / "check";
    follower.end().make(Follower::rootInode, check);
    ASSERT_EQ(snapshot(check), after);

    std::set<std::string> states;
    std::map<std::string, int> outcomes;
    const auto state = folder_ / "state";
    for (std::size_t count = 0; count <= steps.size(); ++count) {
        const bool isOver = count == steps.size();
        for (const std::vector<bool>& selection : makeSelections(steps, count)) {
            Disk disk = follower.start();
            for (std::size_t i = 0; i < count; ++i) {
                if (selection[i])
                    disk.apply(steps[i]);
            }
            const std::string description = disk.describe(Follower::rootInode);
            if (!states.insert(description + (isOver ? "over" : "")).second)
                continue;
            fs::remove_all(state);
            disk.make(Follower::rootInode, state);
            const Content found = snapshot(state);
            ++outcomes[found == after ? "new" : "old"];
            const bool isRight = found == after || (found == before && !isOver);
            if (!isRight && ++outcomes["wrong"] <= 3)
                ADD_FAILURE() << "after step " << count << " of " << steps.size() << ":\n" << description;
        }
    }
    std::printf("orders %s %s: %zu steps, %zu states, %d old, %d new, %d wrong\n",
                host::toUtf8(std::get<0>(GetParam())).c_str(), scenario_.name, steps.size(), states.size(),
                outcomes["old"], outcomes["new"], outcomes["wrong"]);
    EXPECT_GT(outcomes["old"], 0);
    EXPECT_GT(outcomes["new"], 0);
}

std::vector<Scenario> changingScenarios() {
    std::vector<Scenario> scenarios;
    for (const Scenario& scenario : allScenarios()) {
        if (scenario.change && !scenario.isInterrupted)
            scenarios.push_back(scenario);
    }
    return scenarios;
}

INSTANTIATE_TEST_SUITE_P(Stores, PowerFailureTest,
                         testing::Combine(testing::ValuesIn(fileStores()), testing::ValuesIn(changingScenarios())),
                         [](const auto& param) {
                             return host::toUtf8(std::get<0>(param.param)) + "_" + std::get<1>(param.param).name;
                         });

}  // namespace
