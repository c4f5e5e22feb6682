#include "store_support/FolderLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "host/DiagnosticLogger.hpp"
#include "host/FileSystem.hpp"
#include "host/Interruption.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* lockName = ".lock";

/// After how long somebody who waits says so.
constexpr auto noticeAfter = std::chrono::milliseconds(500);

/// How often to look whether somebody has finished. Changes take some milliseconds each.
constexpr auto pollInterval = std::chrono::microseconds(500);

/// Whether the locked file is still the one of that name, and not one that its last holder has removed since. Then
/// whoever may look into the folder can wait for it, whatever mask it was made with.
bool isStillThere(int descriptor, const std::string& name, const Path& file) {
    constexpr mode_t readable = 0444;
    struct stat locked {};
    struct stat named {};
    if (fstat(descriptor, &locked) == 0 && lstat(name.c_str(), &named) == 0) {
        if ((locked.st_mode & readable) != readable)
            static_cast<void>(fchmod(descriptor, locked.st_mode | readable) == 0);
        return locked.st_ino == named.st_ino && locked.st_dev == named.st_dev;
    }
    if (!isAbsence(errno))
        raiseSystemError(file, errno);
    return false;
}

Descriptor openLockFile(const std::string& name) {
    constexpr int flags = O_CREAT | O_NOFOLLOW | O_NONBLOCK;
    Descriptor file(name, O_RDWR | flags, 0666);
    // The one that a colleague has made can be read, and that is enough to wait for him.
    if (!file.isOpen() && errno == EACCES)
        file = Descriptor(name, O_RDONLY | flags, 0666);
    return file;
}

/// Takes the lock of flock(2) on `file`. @return 0, or why it cannot be had: EWOULDBLOCK if somebody else holds it
int tryToTake(const Descriptor& file) noexcept {
    return TEMP_FAILURE_RETRY(flock(file.number(), LOCK_EX | LOCK_NB)) == 0 ? 0 : errno;
}

/// The folder is not there any more: whoever had made it removed it again.
class FolderGone {};

/// How often to make a folder that goes again. Somebody else gets on each time, unless it is a path that leads nowhere.
constexpr int maximumAttempts = 1000;

/// @return the lock file, which is locked; not open if somebody else holds the lock now
/// @throws FolderGone
Descriptor tryToLock(const Path& file, const std::string& name) {
    Descriptor lock = openLockFile(name);
    if (!lock.isOpen() && errno == ENOENT)
        throw FolderGone();
    if (!lock.isOpen())
        raiseSystemError(file, errno);
    const int reason = tryToTake(lock);
    if (reason != 0 && reason != EWOULDBLOCK)
        raiseSystemError(file, reason);
    return reason == 0 && isStillThere(lock.number(), name, file) ? std::move(lock) : Descriptor();
}

/// Who has a lock of flock(2) on the file `name`: " (process 17, editor)", or nothing if the system does not tell.
std::u16string describeHolder(const std::string& name) {
    struct stat status {};
    if (lstat(name.c_str(), &status) != 0)
        return {};
    const std::string place = ':' + std::to_string(status.st_ino) + ' ';
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        // 1: FLOCK  ADVISORY  WRITE 17 fe:00:131 0 EOF
        std::istringstream words(line);
        std::string number, kind, manner, access, process;
        words >> number >> kind >> manner >> access >> process;
        if (kind != "FLOCK" || line.find(place) == std::string::npos)
            continue;
        std::ifstream comm("/proc/" + process + "/comm");
        std::string program;
        if (std::getline(comm, program))
            process.append(", ").append(program);
        return u" (process " + fromUtf8(process) + u")";
    }
    return {};
}

/// Asks again and again until `limit` is over.
/// @param attempt returns whether it has succeeded
template <class Attempt>
void waitFor(const Attempt& attempt, Clock::time_point end, std::chrono::milliseconds limit, const Path& file,
             const std::string& name) {
    const auto patience = Clock::now() + noticeAfter;
    for (bool isTold = false;;) {
        if (attempt())
            return;
        if (!isTold && Clock::now() >= patience) {
            isTold = true;
            host::DiagnosticLogger(project::metadata::waitingChannel)
                .log(host::Severity::info, "Waiting for another program" + toUtf8(describeHolder(name)) +
                                               ", which holds the lock \"" + name + '"');
        }
        if (Clock::now() >= end) {
            raise<MetadataWriteFailure>(file.text(), u"another program" + describeHolder(name) +
                                                         u" has held this lock for more than " +
                                                         fromUtf8(std::to_string(limit.count())) + u" ms");
        }
        host::Interruption::throwIfRequested();
        std::this_thread::sleep_for(pollInterval);
    }
}

/// @throws FolderGone
Descriptor waitForLock(const Path& folder, const std::string& name, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    const Path file = Path::fromAccessName(name);
    const Descriptor turn(folder.accessName(), O_RDONLY | O_DIRECTORY);
    if (!turn.isOpen() && errno == ENOENT)
        throw FolderGone();
    if (!turn.isOpen())
        raiseSystemError(folder, errno);
    // Some file systems of other machines cannot lock folders: then it is left to chance who is next.
    waitFor([&] { return tryToTake(turn) != EWOULDBLOCK; }, end, limit, file, name);
    Descriptor lock;
    const auto tryOnce = [&] {
        lock = tryToLock(file, name);
        return lock.isOpen();
    };
    waitFor(tryOnce, end, limit, file, name);
    return lock;
}

/// @throws FolderGone
void makeFolder(const Path& folder) {
    try {
        makeFolderOfOwner(folder);
    } catch (const MetadataWriteFailure& failure) {
        try {
            std::rethrow_if_nested(failure);
        } catch (const host::FileSystemException& cause) {
            if (cause.code().value() == ENOENT)
                throw FolderGone();
        } catch (...) {
            // The failure tells it.
        }
        throw;
    }
}

}  // namespace

Path getLockFile(const Path& folder) {
    return folder / Path::fromAccessName(lockName);
}

bool isLockHeld(const Path& folder) {
    const Path file = getLockFile(folder);
    const Descriptor descriptor(file.accessName(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!descriptor.isOpen() && !isAbsence(errno))
        raiseReadError(file, errno);
    if (!descriptor.isOpen() || TEMP_FAILURE_RETRY(flock(descriptor.number(), LOCK_SH | LOCK_NB)) == 0)
        return false;
    if (errno != EWOULDBLOCK)
        raiseReadError(file, errno);
    return true;
}

FolderLock::FolderLock(const Path& folder, std::chrono::milliseconds limit, bool cleansUp) {
    try {
        makeAndLock(folder, limit);
        // It follows the folder when that is renamed.
        folder_ = Descriptor(folder.accessName(), O_PATH | O_DIRECTORY);
        if (!folder_.isOpen())
            raiseSystemError(folder, errno);
        if (cleansUp)
            recover(folder);
    } catch (...) {
        release();
        throw;
    }
}

void FolderLock::makeAndLock(const Path& folder, std::chrono::milliseconds limit) {
    for (int attempt = 1; !lock_.isOpen(); ++attempt) {
        const std::vector<Path> missing = findMissingFolders(folder);
        for (std::size_t i = made_.size(); i < missing.size(); ++i)
            made_.push_back(missing[i].accessName());
        try {
            makeFolder(folder);
            requireWritable(folder);
            lock_ = waitForLock(folder, getLockFile(folder).accessName(), limit);
        } catch (const FolderGone&) {
            if (attempt == maximumAttempts)
                raiseSystemError(folder, ENOENT);
        }
    }
}

void FolderLock::release() noexcept {
    // While it is still locked, so that nobody loses a lock that he holds.
    if (folder_.isOpen())
        unlinkat(folder_.number(), lockName, 0);
    for (const std::string& folder : made_)
        rmdir(folder.c_str());
    made_.clear();
    folder_ = {};
    lock_ = {};
}

}  // namespace store_support
