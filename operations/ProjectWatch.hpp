/// Noticing changes of a project's metadata as they happen.
///
/// One thread at a time may use an object.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "operations/TreeDiff.hpp"

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

    host::Path root_;
    Observer& observer_;
    int inotify_ = -1;
    MetadataTree before_, now_;
};

}  // namespace operations
