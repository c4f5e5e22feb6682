/// What the library asks of the file system. Every operation may be called from any thread.
///
/// Take this to change or to list, `FileUtils.hpp` to ask; to replace a file that matters,
/// `store_support/FileReplacement.hpp`.
#pragma once

#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "host/Export.hpp"
#include "host/Path.hpp"

namespace host {

/// A file system operation failed. `what()` is the message in UTF-8.
class HOST_EXPORT FileSystemException : public std::exception {
public:
    /// `path` is what the operation was about, `code` the operating system's reason.
    FileSystemException(Path path, std::error_code code);

    const char* what() const noexcept override { return text_.c_str(); }
    const Path& path() const noexcept { return path_; }
    const std::error_code& code() const noexcept { return code_; }

private:
    Path path_;
    std::error_code code_;
    std::string text_;
};

/// The operation was refused: permissions, or a read-only file system.
class HOST_EXPORT AccessDeniedException : public FileSystemException {
public:
    using FileSystemException::FileSystemException;
};

/// How `FileSystem::copy_file` treats an existing target. The values are part of the interface.
enum class CopyOption { none = 0, overwriteExisting = 1 };

using InputFileStream = std::ifstream;
using OutputFileStream = std::ofstream;

/// The entries of one folder, in the order in which the operating system lists them, without "." and "..".
class HOST_EXPORT DirectoryIterator {
public:
    /// Opens `folder` and moves to its first entry.
    /// @throws FileSystemException if it cannot be opened
    explicit DirectoryIterator(const Path& folder);
    ~DirectoryIterator();

    DirectoryIterator(const DirectoryIterator&) = delete;
    DirectoryIterator& operator=(const DirectoryIterator&) = delete;

    /// False once there are no more entries, at once for an empty folder.
    bool isOpen() const;

    /// The folder joined with the name of the current entry. Only while open.
    Path fullPathName() const;

    /// Moves to the next entry. Only while open.
    /// @throws FileSystemException if the folder cannot be read further
    void increment();

private:
    struct State;
    std::unique_ptr<State> state_;
};

struct HOST_EXPORT FileSystem {
    FileSystem() = delete;

    /// Whether `path`, symbolic links followed, names anything.
    /// @throws FileSystemException if that cannot be found out
    static bool exists(const Path& path);

    /// Makes the folder `path` and every missing one above it. A folder that is there is no error. An empty path is the
    /// current folder: nothing is done.
    /// @throws AccessDeniedException, FileSystemException
    static void create_directories(const Path& path);

    /// Removes a file, or a folder with everything below it. What does not exist is no error; symbolic links are
    /// removed, not followed.
    /// @throws AccessDeniedException, FileSystemException
    static void remove_all(const Path& path);

    /// Copies the content and the permissions of the regular file `from` to `to`, the process's file mode creation mask
    /// applied. With `CopyOption::none` an existing `to` is refused and left alone; otherwise it must be a regular
    /// file, and is replaced in one step when the copy is complete. A copy that fails part-way leaves no new
    /// file behind.
    /// @throws AccessDeniedException, FileSystemException
    static void copy_file(const Path& from, const Path& to, CopyOption option);

    /// The folder for temporary files.
    /// @throws FileSystemException if there is none
    static Path temp_directory_name();

    /// The message of a file system error for people.
    static std::u16string getExceptionMessage(const FileSystemException& error);
};

}  // namespace host
