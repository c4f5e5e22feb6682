#include "store_support/FolderLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>

#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* lockName = ".lock";

/// Whether the locked file is still the one of that name, and not one that its last holder has removed since.
bool isStillThere(int descriptor, const std::string& name) {
    struct stat locked {};
    struct stat named {};
    return fstat(descriptor, &locked) == 0 && stat(name.c_str(), &named) == 0 && locked.st_ino == named.st_ino &&
           locked.st_dev == named.st_dev;
}

/// @return a descriptor of the folder that follows it when it is renamed
int openFolder(const Path& folder) {
    const int descriptor = open(folder.accessName().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        raiseSystemError(folder, errno);
    return descriptor;
}

/// @return a descriptor that holds the lock, -1 if somebody else holds it now
int tryToLock(const Path& file) {
    const std::string name = file.accessName();
    const int descriptor = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (descriptor < 0)
        raiseSystemError(file, errno);
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        if (isStillThere(descriptor, name))
            return descriptor;
    } else if (errno != EWOULDBLOCK && errno != EINTR) {
        const int reason = errno;
        close(descriptor);
        raiseSystemError(file, reason);
    }
    close(descriptor);
    return -1;
}

int waitForLock(const Path& file, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    for (std::chrono::milliseconds pause(1);; pause = std::min(pause * 2, std::chrono::milliseconds(50))) {
        const int descriptor = tryToLock(file);
        if (descriptor >= 0)
            return descriptor;
        if (Clock::now() >= end) {
            project::metadata::raise<project::metadata::MetadataWriteFailure>(
                file.text(), u"another program has held this lock for more than " +
                                 host::fromUtf8(std::to_string(limit.count())) + u" ms");
        }
        host::Interruption::throwIfRequested();
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace

Path getLockFile(const Path& folder) {
    return folder / Path::fromAccessName(lockName);
}

bool isLockHeld(const Path& folder) {
    const int descriptor = open(getLockFile(folder).accessName().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0)
        return false;
    const bool isFree = flock(descriptor, LOCK_SH | LOCK_NB) == 0;
    close(descriptor);
    return !isFree;
}

FolderLock::FolderLock(const Path& folder, std::chrono::milliseconds limit) {
    project::metadata::makeFolder(folder);
    requireWritable(folder);
    descriptor_ = waitForLock(getLockFile(folder), limit);
    try {
        folder_ = openFolder(folder);
        recover(folder);
    } catch (...) {
        release();
        throw;
    }
}

void FolderLock::release() noexcept {
    if (descriptor_ < 0)
        return;
    // While it is still locked, so that nobody loses a lock that he holds.
    if (folder_ >= 0) {
        unlinkat(folder_, lockName, 0);
        close(folder_);
    }
    close(descriptor_);
    descriptor_ = -1;
}

}  // namespace store_support
