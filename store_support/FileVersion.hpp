/// Noticing that a file has changed since it was read.
#pragma once

#include <sys/stat.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "store_support/Library.hpp"

namespace store_support {

/// Tells one content of a file from the next: stores replace files, so each content has an inode and times of its own,
/// and editors change at least the times.
struct FileVersion {
    std::uint64_t inode;
    std::int64_t size;
    std::int64_t modified;  ///< in nanoseconds
    std::int64_t changed;   ///< in nanoseconds, by the clock of the file system
};

inline bool operator==(const FileVersion& a, const FileVersion& b) {
    return a.inode == b.inode && a.size == b.size && a.modified == b.modified && a.changed == b.changed;
}

inline bool operator!=(const FileVersion& a, const FileVersion& b) {
    return !(a == b);
}

struct FileVersionHash {
    std::size_t operator()(const FileVersion& version) const noexcept {
        return std::hash<std::uint64_t>()(version.inode ^ static_cast<std::uint64_t>(version.modified));
    }
};

std::int64_t toNanoseconds(const timespec& time);

FileVersion makeFileVersion(const struct stat& status);

/// The version of `file` on disk, no value if it does not exist; of a symbolic link, its own. May be
/// called from any thread.
/// @throws MetadataReadFailure if it cannot be examined
std::optional<FileVersion> getFileVersion(const Path& file);

/// As that for a folder, or what a symbolic link to one leads to; no value for anything else.
std::optional<FileVersion> getFolderVersion(const host::Path& folder);

/// The same for who asks again and again.
/// @param name the access name of `folder`
std::optional<FileVersion> getFolderVersion(const host::Path& folder, const std::string& name);

}  // namespace store_support
