/// Questions about files and paths that are more than one system call. Every operation may be called from any thread.
///
/// Take this to ask or to work with names, `FileSystem.hpp` to change or to list, and what needs the user's setting for
/// read-only files from `project/metadata/FileUtilities.hpp`.
#pragma once

#include "host/Export.hpp"
#include "host/Path.hpp"

namespace host {

struct HOST_EXPORT FileUtils {
    FileUtils() = delete;

    /// As `FileSystem::exists`; what cannot be found out counts as not existing.
    static bool existNoExcept(const Path& path) noexcept;

    /// Whether this process may not write to `path`: permissions of the effective user, attributes of the file and
    /// read-only mounts all count. An empty path is the current folder.
    /// @throws FileSystemException if `path` does not exist or cannot be tested
    static bool isReadOnly(const Path& path);

    /// As `isReadOnly`; what cannot be found out counts as not read-only.
    static bool isReadOnlyNoExcept(const Path& path) noexcept;

    /// Adds the owner's write permission to `path` and keeps all others as they are. Does nothing to a symbolic link,
    /// which has no permissions of its own, and never touches what it leads to; see `followLink`. An empty path is the
    /// current folder.
    /// @throws AccessDeniedException, FileSystemException
    static void makeWritable(const Path& path);

    /// What the symbolic link `path` leads to in the end, under its absolute name. `path` as it stands if it is no
    /// link, or one that cannot be followed.
    static Path followLink(const Path& path);

    /// `path` itself if it is absolute, otherwise below the current folder. An empty path is the current folder.
    /// @throws FileSystemException if the current folder cannot be found out
    static Path makeAbsolute(const Path& path);

    /// Without "." elements, "name/.." pairs, repeated and trailing separators. Purely textual: symbolic links are
    /// not resolved.
    static Path normalize(const Path& path);

    /// Whether `ancestor` lies strictly above `descendant`. Both are compared element by element as they stand, so
    /// "/a/b" is an ancestor of "/a/b/c", but neither of "/a/bc" nor of itself.
    static bool isAncestor(const Path& ancestor, const Path& descendant);
};

}  // namespace host
