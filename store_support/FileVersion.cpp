#include "store_support/FileVersion.hpp"

#include "store_support/Disk.hpp"

namespace store_support {

std::int64_t toNanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileVersion makeFileVersion(const struct stat& status) {
    return {status.st_ino, status.st_size, toNanoseconds(status.st_mtim), toNanoseconds(status.st_ctim)};
}

std::optional<FileVersion> getFileVersion(const Path& file) {
    const auto status = findStatus(file);
    return status ? std::optional(makeFileVersion(*status)) : std::nullopt;
}

std::optional<FileVersion> getFolderVersion(const host::Path& folder) {
    return getFolderVersion(folder, folder.accessName());
}

std::optional<FileVersion> getFolderVersion(const host::Path& folder, const std::string& name) {
    const auto status = findStatus(folder, name + "/.");
    return status ? std::optional(makeFileVersion(*status)) : std::nullopt;
}

}  // namespace store_support
