/// Noticing changes of a project's metadata as they happen.
///
/// One thread at a time may use an object.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/Path.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "operations/TreeDiff.hpp"
#include "operations/TreeUpdate.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataOptions.hpp"

namespace operations {

class ProjectWatch {
public:
    /// Reads the project with the root folder `root`, with which the first change is compared.
    /// @throws as `readTree`; std::system_error if the system cannot watch so many folders
    ProjectWatch(const host::Path& root, Observer& observer);
    ~ProjectWatch();

    ProjectWatch(const ProjectWatch&) = delete;
    ProjectWatch& operator=(const ProjectWatch&) = delete;

    /// Waits until the metadata is another, and compares. Several changes that come at once are one.
    /// @return the differences, which are valid until the next call
    /// @throws host::InterruptedException; as `readTree`, if the metadata stays unreadable for some seconds
    std::vector<PathDiff> wait();

private:
    void watchFolders();
    void watchBelow(const std::string& folder);
    void watch(const std::string& folder);
    bool waitForEvent(std::chrono::milliseconds limit);
    void note(int watch, std::uint32_t mask, const std::string& name);
    bool isNewVersion(const std::string& place);
    bool isWhereItWas() const;
    std::vector<PathDiff> lookAgain();
    std::optional<TreeUpdate> readChanges(const ChangedEntry& changes) const;
    void readAgain();
    void readProject();

    host::Path root_, folder_, coreFile_;
    std::optional<std::u16string> type_;  // of the store
    Observer& observer_;
    int inotify_ = -1;
    std::unordered_map<int, std::string> folders_;            // by the numbers of their watches
    std::unordered_map<std::string, std::int64_t> versions_;  // of files that were written in place, by their names
    ChangedEntry changes_;                                    // since the last look
    std::vector<std::string> newFolders_;
    bool isAllInDoubt_ = false;  // whether something has happened that may have changed anything
    std::unique_ptr<project::metadata::MetadataManager> store_;
    project::metadata::RemoteContent* remote_ = nullptr;  // where content changes without a file
    std::int64_t version_ = 0;                            // of that
    MetadataTree now_;
    MetadataTree before_, after_;  // what the last differences point into, besides
};

}  // namespace operations
