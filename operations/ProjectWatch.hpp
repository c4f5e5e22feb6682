/// Noticing changes of a project's metadata as they happen.
///
/// One thread at a time may use an object.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "operations/TreeDiff.hpp"
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
    void watch(const std::string& folder);
    bool waitForEvent(std::chrono::milliseconds limit);
    bool readAgain();
    void readProject();

    host::Path root_;
    Observer& observer_;
    int inotify_ = -1;
    std::unique_ptr<project::metadata::MetadataManager> store_;
    project::metadata::RemoteContent* remote_ = nullptr;  // where content changes without a file
    std::int64_t version_ = 0;                            // of that
    MetadataTree before_, now_;
};

}  // namespace operations
