#include "operations/ProjectWatch.hpp"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/Interruption.hpp"
#include "operations/Errors.hpp"
#include "operations/Project.hpp"
#include "project/exception/ProjectException.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/FileVersion.hpp"

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

/// `root` without separators at its end, with which it would be none of the folders above another.
host::Path makePlain(const host::Path& root) {
    std::u16string text = root.text();
    while (text.size() > 1 && text.back() == u'/')
        text.pop_back();
    return host::Path(text);
}

}  // namespace

ProjectWatch::ProjectWatch(const host::Path& root, Observer& observer)
    : root_(makePlain(root)), observer_(observer), inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
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
        std::vector<PathDiff> diffs = lookAgain();
        if (!diffs.empty())
            return diffs;
    }
}

/// @return what is different since the last look
std::vector<PathDiff> ProjectWatch::lookAgain() {
    const ChangedEntry changes = std::exchange(changes_, {});
    const std::vector<std::string> newFolders = std::exchange(newFolders_, {});
    if (!std::exchange(isAllInDoubt_, false) && isWhereItWas()) {
        if (changes.inside.empty())
            return {};
        // First: what is made in a folder that is new is seen now, or told later.
        for (const std::string& folder : newFolders)
            watchBelow(folder);
        if (auto update = readChanges(changes)) {
            now_.root = std::move(update->now);
            before_ = {TreeForm::project, std::move(update->before), nullptr};
            after_ = {TreeForm::project, std::move(update->after), nullptr};
            return diffTrees(before_, after_);
        }
    }
    readAgain();
    return diffTrees(before_, now_);
}

/// Reads what has changed. @return no value if that does not tell
std::optional<TreeUpdate> ProjectWatch::readChanges(const ChangedEntry& changes) const {
    try {
        return updateTree(now_.root, *openProject(root_), folder_, changes);
    } catch (const project::exception::ProjectException&) {
        return std::nullopt;
    } catch (const OperationError&) {
        return std::nullopt;
    }
}

/// Whether the core file is the one that was read, and names the same kind of store.
bool ProjectWatch::isWhereItWas() const {
    try {
        const auto coreFile = pm::ProjectMetadataLocation(root_).locateCoreFile();
        return coreFile && *coreFile == coreFile_ && findType(*coreFile) == type_;
    } catch (const project::exception::ProjectException&) {
        return false;
    }
}

/// Watches the metadata folder and all in it, and those above it, where it may be exchanged for another.
void ProjectWatch::watchFolders() {
    const fs::path root = root_.accessName();
    coreFile_ = pm::ProjectMetadataLocation(root_).getCoreFile();
    folder_ = coreFile_.parentPath();
    const fs::path folder = folder_.accessName();
    for (fs::path above = folder; above.native().size() >= root.native().size(); above = above.parent_path()) {
        watch(above);
        if (above == above.parent_path())
            break;
    }
    watchBelow(folder);
}

/// Watches `folder` and all in it.
void ProjectWatch::watchBelow(const std::string& folder) {
    watch(folder);
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
    const int number = inotify_add_watch(inotify_, folder.c_str(), events);
    if (number >= 0)
        folders_[number] = folder;
    if (number >= 0 || errno == ENOENT || errno == ENOTDIR)
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
        isAllInDoubt_ = isAllInDoubt_ || isChanged;
        limit = 0ms;
    }
    pollfd ready{inotify_, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(limit.count())) <= 0)
        return isChanged;
    std::array<char, 65536> buffer{};
    ssize_t size = 0;
    while ((size = read(inotify_, buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            at += static_cast<ssize_t>(sizeof event);
            note(event.wd, event.mask, event.len == 0 ? "" : buffer.data() + at);
            at += event.len;
        }
    }
    return true;
}

/// Notes what may be another since the entry `name` of a folder is.
void ProjectWatch::note(int watch, std::uint32_t mask, const std::string& name) {
    const auto folder = folders_.find(watch);
    if ((mask & (IN_Q_OVERFLOW | IN_UNMOUNT)) != 0 || folder == folders_.end()) {
        isAllInDoubt_ = true;
        return;
    }
    const bool isFolder = (mask & IN_ISDIR) != 0;
    if (isFolder && (mask & IN_MODIFY) != 0)
        return;  // only its times
    const std::string place = fs::path(folder->second) / name;
    if ((mask & IN_IGNORED) != 0) {  // it has gone, which the folder above says, if that is watched
        isAllInDoubt_ = isAllInDoubt_ || folder->second == root_.accessName();
        folders_.erase(folder);
        return;
    }
    if ((mask & (IN_MODIFY | IN_CLOSE_WRITE)) != 0 && !isNewVersion(place) && (mask & IN_MODIFY) == 0)
        return;
    const std::string start = folder_.accessName() + '/';
    if (place.compare(0, start.size(), start) != 0) {
        isAllInDoubt_ = isAllInDoubt_ || start.compare(0, place.size() + 1, place + '/') == 0;
        return;
    }
    if (isFolder && (mask & IN_CREATE) != 0)
        newFolders_.push_back(place);
    // Watches move with their folders.
    isAllInDoubt_ = isAllInDoubt_ || (isFolder && (mask & (IN_MOVED_FROM | IN_MOVED_TO)) != 0);
    ChangedEntry* entry = &changes_;
    for (const fs::path& step : fs::path(place.substr(start.size())))
        entry = &entry->inside[step];
    entry->isWhole = entry->isWhole || isFolder;
}

/// Whether the file `place` is another than when this was asked last. Opening a file for writing, as a store may do to
/// read it, and closing it changes nothing.
bool ProjectWatch::isNewVersion(const std::string& place) {
    struct stat status {};
    if (lstat(place.c_str(), &status) != 0)
        return true;
    const std::int64_t version = store_support::toNanoseconds(status.st_ctim);
    const auto [known, isNew] = versions_.emplace(place, version);
    return isNew || std::exchange(known->second, version) != version;
}

void ProjectWatch::readProject() {
    remote_ = nullptr;
    store_ = openProject(root_);
    auto* const remote = dynamic_cast<pm::RemoteContent*>(store_.get());
    // First: a change that is made meanwhile comes twice rather than never.
    const std::int64_t version = remote ? remote->getContentVersion() : 0;
    type_ = findType(coreFile_);
    before_ = std::exchange(now_, readTree(*store_, root_, observer_));
    version_ = version;
    remote_ = remote;
    if (!remote)
        store_ = nullptr;
}

/// Reads all of it.
void ProjectWatch::readAgain() {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        try {
            // First: what is made in a folder that is new is seen now, or told later.
            watchFolders();
            readProject();
            return;
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
