#include "store_support/FileVersion.hpp"

#include <sys/stat.h>

#include <cerrno>

namespace store_support {

std::int64_t toNanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::optional<FileVersion> getFileVersion(const host::Path& file) {
    struct stat status {};
    if (stat(file.accessName().c_str(), &status) != 0) {
        const bool isMissing = errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG;
        return isMissing ? std::nullopt : std::optional(FileVersion{});
    }
    return FileVersion{status.st_ino, status.st_size, toNanoseconds(status.st_mtim), toNanoseconds(status.st_ctim)};
}

}  // namespace store_support
