/// A `Path` as std::filesystem and the system calls take it, and their failures as ours. Every function may be called
/// from any thread.
#pragma once

#include "host/Path.hpp"

#include <filesystem>
#include <system_error>

namespace host {

/// Throws the `FileSystemException` for `code`: an `AccessDeniedException` where permissions or a read-only file system
/// are the reason.
[[noreturn]] void throwFileSystemError(const Path& path, std::error_code code);

/// The same for the value that a system call left in `errno`.
[[noreturn]] void throwSystemError(const Path& path, int error);

/// The name of `path` on disk.
/// @throws FileSystemException if it holds U+0000, where the system calls would take its name to end
std::filesystem::path toNative(const Path& path);

/// `path` without separators at its end, with which the system calls would follow a symbolic link.
std::filesystem::path withoutTrailingSeparators(const std::filesystem::path& path);

}  // namespace host
