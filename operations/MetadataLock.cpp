#include "operations/MetadataLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/FileSystem.hpp"
#include "operations/Errors.hpp"
#include "operations/Project.hpp"

namespace operations {

bool MetadataLock::isHeld(const host::Path& folder) {
    const int descriptor = open(lockFile(folder).accessName().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0)
        return false;
    const bool isFree = flock(descriptor, LOCK_SH | LOCK_NB) == 0;
    close(descriptor);
    return !isFree;
}

MetadataLock::MetadataLock(const host::Path& folder) : folder_(folder) {
    const std::string name = lockFile(folder).accessName();
    descriptor_ = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (descriptor_ < 0) {
        throw OperationError(ErrorKind::failure, "The lock " + quoted(lockFile(folder)) +
                                                     " cannot be taken: " + std::generic_category().message(errno));
    }
    struct stat locked {};
    struct stat named {};
    const bool isMine = flock(descriptor_, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor_, &locked) == 0 &&
                        stat(name.c_str(), &named) == 0 && locked.st_ino == named.st_ino;
    if (isMine)
        return;
    close(descriptor_);
    throw OperationError(ErrorKind::failure, "Another program is changing the metadata, and holds the lock " +
                                                 quoted(lockFile(folder)) + "; try again when it has ended");
}

MetadataLock::~MetadataLock() {
    // While it is still locked, so that nobody loses a lock that he holds.
    unlink(lockFile(folder_).accessName().c_str());
    close(descriptor_);
}

bool MetadataLock::removeScratch() const {
    const host::Path scratch = scratchFolder(folder_);
    const bool isDecided =
        host::FileSystem::exists(scratch / u"journal") || host::FileSystem::exists(scratch / u"journal-back");
    if (isDecided || !host::FileSystem::exists(scratch))
        return false;
    host::FileSystem::remove_all(scratch);
    return true;
}

}  // namespace operations
