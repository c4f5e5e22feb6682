#include "operations/ProjectWatch.hpp"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/Interruption.hpp"
#include "operations/Errors.hpp"
#include "operations/Project.hpp"
#include "project/exception/ProjectException.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace operations {

namespace fs = std::filesystem;
namespace pm = project::metadata;

namespace {

using namespace std::chrono_literals;

/// So long nothing must happen before what has happened is looked at, and so long it is put off at most.
constexpr auto quiet = 50ms;
constexpr auto longest = 1000ms;

/// So long metadata may be unreadable, as it is while a folder is exchanged or a merge is at work.
constexpr auto patience = 5000ms;

/// So often somebody asks whether to go on.
constexpr auto tick = 200ms;

constexpr std::uint32_t events =
    IN_CREATE | IN_DELETE | IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR | IN_EXCL_UNLINK;

}  // namespace

ProjectWatch::ProjectWatch(const host::Path& root, Observer& observer)
    : root_(root), observer_(observer), inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (inotify_ < 0)
        throw std::system_error(errno, std::generic_category(), "The system cannot watch folders");
    try {
        requireCoreFile(root_);
        watchFolders();
        readProject();
    } catch (...) {
        close(inotify_);
        throw;
    }
}

ProjectWatch::~ProjectWatch() {
    close(inotify_);
}

std::vector<PathDiff> ProjectWatch::wait() {
    for (;;) {
        host::Interruption::throwIfRequested();
        if (!waitForEvent(tick))
            continue;
        const auto end = std::chrono::steady_clock::now() + longest;
        while (std::chrono::steady_clock::now() < end && waitForEvent(quiet)) {
        }
        if (!readAgain())
            continue;
        std::vector<PathDiff> diffs = diffTrees(before_, now_);
        if (!diffs.empty())
            return diffs;
    }
}

/// Watches the metadata folder and all in it, and those above it, where it may be exchanged for another.
void ProjectWatch::watchFolders() {
    const fs::path root = root_.accessName();
    const fs::path folder = pm::ProjectMetadataLocation(root_).getDirectory().accessName();
    for (fs::path above = folder; above.native().size() >= root.native().size(); above = above.parent_path()) {
        watch(above);
        if (above == above.parent_path())
            break;
    }
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::end(entry); entry.increment(error)) {
        std::error_code vanished;
        if (entry->is_directory(vanished) && !entry->is_symlink(vanished))
            watch(entry->path());
    }
}

/// A folder that is not there, or is watched already, is no error.
void ProjectWatch::watch(const std::string& folder) {
    if (inotify_add_watch(inotify_, folder.c_str(), events) >= 0 || errno == ENOENT || errno == ENOTDIR)
        return;
    const std::string reason = errno == ENOSPC ? "The system watches no more folders (fs.inotify.max_user_watches)"
                                               : "The folder \"" + folder + "\" cannot be watched";
    throw std::system_error(errno, std::generic_category(), reason);
}

/// @return whether anything happened within `limit`
bool ProjectWatch::waitForEvent(std::chrono::milliseconds limit) {
    bool isChanged = false;
    if (remote_) {
        try {
            const std::int64_t version = remote_->waitForChange(version_, inotify_, limit);
            isChanged = std::exchange(version_, version) != version;
        } catch (const project::exception::ProjectException&) {
            // Reading it again will tell, if it goes on.
            remote_ = nullptr;
            isChanged = true;
        }
        limit = 0ms;
    }
    pollfd ready{inotify_, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(limit.count())) <= 0)
        return isChanged;
    std::array<char, 65536> buffer{};
    while (read(inotify_, buffer.data(), buffer.size()) > 0) {
    }
    return true;
}

void ProjectWatch::readProject() {
    remote_ = nullptr;
    store_ = openProject(root_);
    auto* const remote = dynamic_cast<pm::RemoteContent*>(store_.get());
    // First: a change that is made meanwhile comes twice rather than never.
    const std::int64_t version = remote ? remote->getContentVersion() : 0;
    before_ = std::exchange(now_, readTree(*store_, root_, observer_));
    version_ = version;
    remote_ = remote;
    if (!remote)
        store_ = nullptr;
}

/// @return whether the metadata is there
bool ProjectWatch::readAgain() {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        try {
            // First: what is made in a folder that is new is seen now, or told later.
            watchFolders();
            readProject();
            return true;
        } catch (const project::exception::ProjectException&) {
            if (std::chrono::steady_clock::now() >= end)
                throw;
        } catch (const OperationError&) {
            if (std::chrono::steady_clock::now() >= end)
                throw;
        }
        host::Interruption::throwIfRequested();
        waitForEvent(tick);
    }
}

}  // namespace operations
