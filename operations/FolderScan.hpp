/// What lies in a folder on disk, as it is put into metadata.
///
/// Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/Path.hpp"
#include "operations/Progress.hpp"

namespace operations {

enum class FileKind { file, folder, symlink, other };

/// Which file it is, whatever names lead to it.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    /// Of what `path` names, symbolic links followed; no value if it names nothing.
    /// @throws host::FileSystemException if that cannot be found out
    static std::optional<FileIdentity> of(const host::Path& path);

    friend bool operator==(const FileIdentity& a, const FileIdentity& b) {
        return a.device == b.device && a.inode == b.inode;
    }
    friend bool operator<(const FileIdentity& a, const FileIdentity& b) {
        return a.device != b.device ? a.device < b.device : a.inode < b.inode;
    }
};

/// The seconds since 1970, and the nanoseconds of the second that is under way.
using Instant = std::pair<std::int64_t, std::uint32_t>;

/// By which a file is known again under another name.
struct FileTrace {
    FileIdentity identity;
    Instant born;  ///< when it was made, 0 if the file system does not know; for identities are used again
    Instant modified;
    std::uint64_t size = 0;  ///< in bytes

    friend bool operator==(const FileTrace& a, const FileTrace& b) {
        return a.identity == b.identity && a.born == b.born && a.modified == b.modified && a.size == b.size;
    }
};

/// A file, a folder, or anything else that has a name in a folder.
struct ScannedFile {
    std::u16string name;
    FileKind kind = FileKind::folder;
    FileTrace trace;
    bool isLeftOut = false;   ///< it is there, and not described; nothing below it is in the scan
    bool isComplete = true;   ///< whether all that lies in the folder is in the scan
    bool isOnTheWay = false;  ///< a folder that leads to the one that was asked for

    // What lies in a folder: the next `childCount` elements of the scan from `firstChild` on, sorted by name.
    std::size_t parent = 0;
    std::size_t firstChild = 0;
    std::size_t childCount = 0;
};

struct FolderScan {
    /// Level by level: the first element is where the scan begins, and every folder comes before what lies in it.
    std::vector<ScannedFile> files;
    /// For each folder that cannot be read, a sentence. What lies in it is not known, so it is not complete.
    std::vector<std::string> problems;
};

struct ScanRules {
    std::vector<FileIdentity> leftOut;  ///< wherever they turn up
    bool heedGit = true;                ///< whether to leave out what git ignores
    /// Whether to leave out what has the name `name` and lies at `place`, relative to the scanned folder.
    std::function<bool(const std::u16string& name, const std::u16string& place)> isExcluded;
};

/// Everything below the folder `top` / `way`, where the first element stands for `top`. Of the folders on `way`, only
/// what leads down is looked at. Left out is what `rules` say and everything named ".git"; what vanishes meanwhile is
/// not there. Symbolic links are listed and not followed. `progress` advances with every element.
///
/// What git ignores: what it says of the work tree that the folder lies in, and of those that lie in it. A folder in
/// which there is nothing else is ignored too.
///
/// @throws ListChildFilesFailure if the folder itself cannot be listed
/// @throws OperationError if there is a repository, but git cannot say what it ignores, or ignores the folder itself
FolderScan scanFolder(const host::Path& top, const std::vector<std::u16string>& way, const ScanRules& rules,
                      Progress& progress);

/// `time` in UTC by ISO 8601, such as "2024-02-29T12:00:00.25Z", with as many digits after the second as it has.
std::u16string formatTime(const Instant& time);

/// Whether `text` has the form of `formatTime`.
bool isTime(const std::u16string& text);

}  // namespace operations
