/// A unit of work on files: which it will write, which it will delete, and what does it.
#pragma once

#include <functional>
#include <vector>

#include "host/Path.hpp"
#include "project/Export.hpp"

namespace project::metadata {

/// A value type; different objects may be used by different threads.
class PROJECT_METADATA_EXPORT FileJob {
public:
    /// @param filesToWrite the files that `action` creates or overwrites
    /// @param filesToDelete the files and folders that `action` removes
    /// @param action does the work
    FileJob(std::vector<host::Path> filesToWrite, std::vector<host::Path> filesToDelete, std::function<void()> action);

    const std::vector<host::Path>& getFilesToWrite() const noexcept { return filesToWrite_; }
    const std::vector<host::Path>& getFilesToDelete() const noexcept { return filesToDelete_; }

    /// Does the work.
    /// @throws whatever the action throws; std::bad_function_call if there is none
    void run();

private:
    std::vector<host::Path> filesToWrite_;
    std::vector<host::Path> filesToDelete_;
    std::function<void()> action_;
};

}  // namespace project::metadata
