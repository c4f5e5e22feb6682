/// Noticing that somebody else has changed files in a folder, or still may.
///
/// One thread at a time may use an object.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace operations {

/// All files in a folder with what changes when they do. A lock and the memory that programs share about a database
/// hold no content, and do not count.
class FolderVersion {
public:
    /// @throws std::filesystem::filesystem_error if the folder cannot be looked through
    explicit FolderVersion(const std::filesystem::path& folder);

    /// The first file, relative to the folder, that `later` does not have, or has in another version, or has besides.
    std::optional<std::string> findDifference(const FolderVersion& later) const;

private:
    /// In nanoseconds. A file that is renamed together with its folder keeps all of it.
    struct Version {
        ino_t inode;
        off_t size;
        std::int64_t modified, changed;
    };
    friend bool operator!=(const Version& a, const Version& b) {
        return a.inode != b.inode || a.size != b.size || a.modified != b.modified || a.changed != b.changed;
    }

    std::map<std::string, Version> files_;
};

/// The first file in `folder`, relative to it, that another program holds a lock on, as those do that have a database
/// open (fcntl(2)). This process must not have such a lock itself: it would lose it.
/// @throws std::filesystem::filesystem_error if the folder cannot be looked through
std::optional<std::string> findLockedFile(const std::filesystem::path& folder);

}  // namespace operations
