#include "stores/fixed_path/SeenFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "project/metadata/FileUtilities.hpp"
#include "store_support/Disk.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::getParentFolder;
using store_support::Descriptor;
using store_support::FileVersion;
using store_support::getFolderVersion;
using store_support::toNanoseconds;

namespace {

std::int64_t readClock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return toNanoseconds(now);
}

/// The time that the file system of `folder` gives to what is made there now; no value if it cannot be asked. It may be
/// another machine's. Nothing is left behind, whenever this ends: a file without a name is made or, where the file
/// system has none, the folder is touched.
std::optional<std::int64_t> askFileSystem(const std::string& folder) {
    struct stat status {};
    const Descriptor unnamed(folder, O_TMPFILE | O_WRONLY, 0600);
    const bool isKnown = unnamed.isOpen() ? fstat(unnamed.number(), &status) == 0
                                          : (errno == EOPNOTSUPP || errno == EISDIR) &&
                                                utimensat(AT_FDCWD, folder.c_str(), nullptr, 0) == 0 &&
                                                stat(folder.c_str(), &status) == 0;
    return isKnown ? std::optional(toNanoseconds(status.st_ctim)) : std::nullopt;
}

/// A moment such that what has changed in `folder` so far did not change later, and what will, will. The clocks of file
/// systems tick every few milliseconds only, so this waits for the next tick.
std::int64_t findBeginning(const Path& folder) {
    constexpr std::int64_t longestTick = 2'000'000'000;
    constexpr auto pause = std::chrono::microseconds(200);
    const std::string name = folder.accessName();
    const std::int64_t start = readClock(CLOCK_MONOTONIC);
    const auto isPatient = [&] { return readClock(CLOCK_MONOTONIC) - start < longestTick; };
    if (const auto first = askFileSystem(name)) {
        for (auto now = first; now && *now <= *first && isPatient(); now = askFileSystem(name))
            std::this_thread::sleep_for(pause);
        return *first;
    }
    // Nobody may write here, or there is nothing yet. The clock of this machine must do; that of files lags behind it.
    const std::int64_t now = readClock(CLOCK_REALTIME);
    while (readClock(CLOCK_REALTIME_COARSE) <= now && isPatient() && store_support::isFolder(folder))
        std::this_thread::sleep_for(pause);
    return now;
}

/// What new permissions and further names do not change.
FileVersion getContentVersion(FileVersion version) {
    version.changed = 0;
    return version;
}

}  // namespace

SeenFiles::SeenFiles(Path folder) : folder_(std::move(folder)), beginning_(findBeginning(folder_)) {
    if (const auto version = getFolderVersion(folder_))
        inode_ = version->inode;
}

void SeenFiles::add(const Path& file, const FileVersion& version) {
    known_.insert(makeKey(file, version));
}

void SeenFiles::remove(const Path& file, const FileVersion& version) {
    known_.erase(makeKey(file, version));
}

bool SeenFiles::isKnown(const Path& file, const FileVersion& version) {
    return known_.count(makeKey(file, version)) != 0 ||
           (version.changed <= beginning_ && isOriginal(getParentFolder(file)));
}

SeenFiles::Key SeenFiles::makeKey(const Path& file, const FileVersion& version) {
    return {std::hash<std::u16string>()(file.text()), getContentVersion(version)};
}

bool SeenFiles::isOriginal(const Path& folder) {
    const auto look = looks_.find(folder.text());
    if (look != looks_.end())
        return look->second;
    const bool isIt = looksOriginal(folder);
    hasForeignFolders_ = hasForeignFolders_ || !isIt;
    looks_.emplace(folder.text(), isIt);
    return isIt;
}

bool SeenFiles::looksOriginal(const Path& folder) {
    const auto version = getFolderVersion(folder);
    if (folder == folder_)
        return version && version->inode == inode_;
    if (!version || !isOriginal(getParentFolder(folder)))
        return false;
    const auto known = inodes_.find(folder.text());
    if (known != inodes_.end())
        return known->second == version->inode;
    // A folder that is moved has changed, but not what is in it. What others have done in it is no reason for doubt.
    const bool isIt = version->changed <= beginning_ || version->modified > beginning_;
    if (isIt)
        inodes_.emplace(folder.text(), version->inode);
    return isIt;
}

}  // namespace stores::fixed_path
