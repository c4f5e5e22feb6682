#include "store_support/FileWatch.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <utility>

namespace store_support {

namespace {

constexpr std::int64_t trustedFor = 1'000'000;  // nanoseconds

std::int64_t readClock() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return toNanoseconds(now);
}

/// Whether what is done to the name of an open file shows in its status at once: renaming it, and putting another in
/// its place, sets the time of its last change.
bool showsItself(int descriptor) {
    constexpr long xfs = 0x58465342;  // XFS_SUPER_MAGIC is in no header of the system
    constexpr std::array<long, 5> known = {EXT4_SUPER_MAGIC, xfs, BTRFS_SUPER_MAGIC, TMPFS_MAGIC, F2FS_SUPER_MAGIC};
    struct statfs status {};
    return fstatfs(descriptor, &status) == 0 && std::find(known.begin(), known.end(), status.f_type) != known.end();
}

}  // namespace

FileWatch::FileWatch(Path file, const std::optional<FileVersion>& version) : file_(std::move(file)), version_(version) {
    if (!version)
        return;
    descriptor_ = Descriptor(file_.accessName(), O_PATH | O_NOFOLLOW);
    if (descriptor_.isOpen() && !showsItself(descriptor_.number()))
        descriptor_ = {};
}

bool FileWatch::isUnchanged() {
    const std::int64_t now = readClock();
    struct stat status {};
    if (descriptor_.isOpen() && now - lookedUp_ < trustedFor && fstat(descriptor_.number(), &status) == 0)
        return status.st_nlink > 0 && makeFileVersion(status) == version_;
    if (getFileVersion(file_) != version_)
        return false;
    lookedUp_ = now;
    return true;
}

}  // namespace store_support
