#include "project/metadata/FileJob.hpp"

#include <utility>

namespace project::metadata {

FileJob::FileJob(std::vector<host::Path> filesToWrite, std::vector<host::Path> filesToDelete,
                 std::function<void()> action)
    : filesToWrite_(std::move(filesToWrite)), filesToDelete_(std::move(filesToDelete)), action_(std::move(action)) {}

void FileJob::run() {
    action_();
}

}  // namespace project::metadata
