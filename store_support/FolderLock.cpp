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
#include "host/Text.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;

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

/// @return a descriptor of the folder that follows it when it is renamed
int openFolder(const Path& folder) {
    const int descriptor = openFile(folder.accessName(), O_PATH | O_DIRECTORY);
    if (descriptor < 0)
        raiseSystemError(folder, errno);
    return descriptor;
}

int openLockFile(const std::string& name) {
    constexpr int flags = O_CREAT | O_NOFOLLOW | O_NONBLOCK;
    const int descriptor = openFile(name, O_RDWR | flags, 0666);
    // The one that a colleague has made can be read, and that is enough to wait for him.
    return descriptor < 0 && errno == EACCES ? openFile(name, O_RDONLY | flags, 0666) : descriptor;
}

/// A lock of flock(2), and the file that it is on.
class Lock {
public:
    explicit Lock(int descriptor) noexcept : descriptor_(descriptor) {}
    ~Lock() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }

    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    /// @return 0, or the reason why it cannot be had: EWOULDBLOCK if somebody else holds it
    int tryToTake() const noexcept {
        return TEMP_FAILURE_RETRY(flock(descriptor_, LOCK_EX | LOCK_NB)) == 0 ? 0 : errno;
    }

    int descriptor() const noexcept { return descriptor_; }
    int release() noexcept { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

/// The folder is not there any more: whoever had made it removed it again.
class FolderGone {};

/// How often to make a folder that goes again. Somebody else gets on each time, unless it is a path that leads nowhere.
constexpr int maximumAttempts = 1000;

/// @return a descriptor that holds the lock, -1 if somebody else holds it now
/// @throws FolderGone
int tryToLock(const Path& file, const std::string& name) {
    Lock lock(openLockFile(name));
    if (lock.descriptor() < 0 && errno == ENOENT)
        throw FolderGone();
    if (lock.descriptor() < 0)
        raiseSystemError(file, errno);
    const int reason = lock.tryToTake();
    if (reason != 0 && reason != EWOULDBLOCK)
        raiseSystemError(file, reason);
    return reason == 0 && isStillThere(lock.descriptor(), name, file) ? lock.release() : -1;
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
        return u" (process " + host::fromUtf8(process) + u")";
    }
    return {};
}

/// Asks again and again until `limit` is over.
/// @param attempt returns a descriptor, or -1
template <class Attempt>
int waitFor(const Attempt& attempt, Clock::time_point end, std::chrono::milliseconds limit, const Path& file,
            const std::string& name) {
    const auto patience = Clock::now() + noticeAfter;
    for (bool isTold = false;;) {
        const int descriptor = attempt();
        if (descriptor >= 0)
            return descriptor;
        if (!isTold && Clock::now() >= patience) {
            isTold = true;
            host::DiagnosticLogger(project::metadata::waitingChannel)
                .log(host::Severity::info, "Waiting for another program" + host::toUtf8(describeHolder(name)) +
                                               ", which holds the lock \"" + name + '"');
        }
        if (Clock::now() >= end) {
            project::metadata::raise<project::metadata::MetadataWriteFailure>(
                file.text(), u"another program" + describeHolder(name) + u" has held this lock for more than " +
                                 host::fromUtf8(std::to_string(limit.count())) + u" ms");
        }
        host::Interruption::throwIfRequested();
        std::this_thread::sleep_for(pollInterval);
    }
}

/// @throws FolderGone
int waitForLock(const Path& folder, const std::string& name, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    const Path file = Path::fromAccessName(name);
    const Lock turn(openFile(folder.accessName(), O_RDONLY | O_DIRECTORY));
    if (turn.descriptor() < 0 && errno == ENOENT)
        throw FolderGone();
    if (turn.descriptor() < 0)
        raiseSystemError(folder, errno);
    // Some file systems of other machines cannot lock folders: then it is left to chance who is next.
    waitFor([&] { return turn.tryToTake() == EWOULDBLOCK ? -1 : 0; }, end, limit, file, name);
    return waitFor([&] { return tryToLock(file, name); }, end, limit, file, name);
}

/// @throws FolderGone
void makeFolder(const Path& folder) {
    try {
        makeFolderOfOwner(folder);
    } catch (const project::metadata::MetadataWriteFailure& failure) {
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
    return descriptor.isOpen() && flock(descriptor.number(), LOCK_SH | LOCK_NB) != 0;
}

FolderLock::FolderLock(const Path& folder, std::chrono::milliseconds limit, bool cleansUp) {
    try {
        makeAndLock(folder, limit);
        folder_ = openFolder(folder);
        if (cleansUp)
            recover(folder);
    } catch (...) {
        release();
        throw;
    }
}

void FolderLock::makeAndLock(const Path& folder, std::chrono::milliseconds limit) {
    for (int attempt = 1; descriptor_ < 0; ++attempt) {
        const std::vector<Path> missing = findMissingFolders(folder);
        for (std::size_t i = made_.size(); i < missing.size(); ++i)
            made_.push_back(missing[i].accessName());
        try {
            makeFolder(folder);
            requireWritable(folder);
            descriptor_ = waitForLock(folder, getLockFile(folder).accessName(), limit);
        } catch (const FolderGone&) {
            if (attempt == maximumAttempts)
                raiseSystemError(folder, ENOENT);
        }
    }
}

void FolderLock::release() noexcept {
    // While it is still locked, so that nobody loses a lock that he holds.
    if (descriptor_ >= 0 && folder_ >= 0) {
        unlinkat(folder_, lockName, 0);
        close(folder_);
    }
    for (const std::string& folder : made_)
        rmdir(folder.c_str());
    made_.clear();
    if (descriptor_ >= 0)
        close(descriptor_);
    descriptor_ = -1;
}

}  // namespace store_support
