/// What lies in a folder on disk, as it is put into metadata.
///
/// Different threads may scan at the same time.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "operations/Progress.hpp"

namespace operations {

enum class FileKind { file, folder, symlink, other };

/// A file, a folder, or anything else that has a name in a folder.
struct ScannedFile {
    std::u16string name;
    FileKind kind = FileKind::folder;
    std::uint64_t size = 0;  // in bytes
    std::timespec modified{};

    // What lies in a folder: the next `childCount` elements of the scan from `firstChild` on, sorted by name.
    std::size_t parent = 0;
    std::size_t firstChild = 0;
    std::size_t childCount = 0;
};

/// Which file it is, whatever names lead to it.
struct FileIdentity {
    dev_t device;
    ino_t inode;

    /// Of what `path` names, symbolic links followed; no value if it names nothing.
    /// @throws host::FileSystemException if that cannot be found out
    static std::optional<FileIdentity> of(const host::Path& path);

    friend bool operator==(const FileIdentity& a, const FileIdentity& b) {
        return a.device == b.device && a.inode == b.inode;
    }
};

/// Everything below `folder`, level by level: the first element is the folder itself, and every folder comes before
/// what lies in it. Left out are everything named ".git", the folders `leftOut` wherever they turn up, and what
/// vanishes meanwhile. Symbolic links are listed and not followed. `progress` advances with every element.
///
/// @throws ListChildFilesFailure for a folder that cannot be listed
/// @throws host::FileSystemException for a file whose properties cannot be read
std::vector<ScannedFile> scanFolder(const host::Path& folder, const std::vector<FileIdentity>& leftOut,
                                    Progress& progress);

/// `time` in UTC by ISO 8601, such as "2024-02-29T12:00:00.25Z", with as many digits after the second as it has.
std::u16string formatTime(const std::timespec& time);

}  // namespace operations
