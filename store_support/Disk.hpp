/// What stores ask of the operating system, with exact answers: what does not exist is told apart from what cannot be
/// looked at, and no symbolic link is followed at the end of a path. Calls that a signal interrupts are made again.
///
/// No function keeps state; all may be called from any thread. Those that throw system errors name the path and the
/// cause. None dies of a lack of memory: that is a `std::bad_alloc`.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store_support/Library.hpp"

namespace store_support {

/// Larger files than this, in bytes, are not read: who opens a project from elsewhere does not choose its size.
constexpr std::size_t maximumFileSize = std::size_t{4} << 30U;

/// Whether an error number of the operating system says that something does not exist: ENOENT, ENOTDIR, and
/// ENAMETOOLONG, since nothing can have such a name.
bool isAbsence(int code);

/// What lstat(2) says about `path`; no value if it does not exist.
/// @throws MetadataReadFailure if that cannot be found out
std::optional<struct stat> findStatus(const Path& path);

/// The same for who asks again and again.
/// @param name the access name of `path`
std::optional<struct stat> findStatus(const Path& path, const std::string& name);

/// Whether `path` exists, as a link too.
/// @throws as `findStatus`
bool exists(const Path& path);

/// Whether `path` is a folder. A symbolic link to one is none: nothing outside a metadata folder is a store's.
/// @throws as `findStatus`
bool isFolder(const Path& path);

/// The names in `folder` without "." and "..", in no particular order; none if it does not exist.
/// @throws project::metadata::ListChildFilesFailure
std::vector<std::string> listNames(const Path& folder);

/// What a folder says of something in it.
struct FolderEntry {
    std::string name;     ///< its access name
    std::uint64_t inode;  ///< not the file's own where another file system is mounted
    bool isRegular;       ///< false too if the file system does not tell
};

/// The same with more than the names.
/// @throws as `listNames`
std::vector<FolderEntry> listEntries(const host::Path& folder);

/// openat(2) with O_CLOEXEC. @return -1 if that fails; errno says why
int openFile(const std::string& name, int flags, mode_t mode = 0, int folder = AT_FDCWD) noexcept;

/// An open file or folder.
class Descriptor {
public:
    Descriptor() = default;
    /// Opens `name` as `openFile`; `isOpen` tells whether that succeeded.
    Descriptor(const std::string& name, int flags, mode_t mode = 0, int folder = AT_FDCWD) noexcept
        : number_(openFile(name, flags, mode, folder)) {}
    ~Descriptor();

    Descriptor(Descriptor&& other) noexcept { std::swap(number_, other.number_); }
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    bool isOpen() const noexcept { return number_ >= 0; }
    int number() const noexcept { return number_; }

private:
    int number_ = -1;
};

/// A folder that is open so that it can be flushed: who may write in one need not be allowed to open it, and is to find
/// that out while nothing has changed.
class OpenFolder {
public:
    /// @throws project::metadata::MetadataWriteFailure
    explicit OpenFolder(const host::Path& path);

    const host::Path& path() const noexcept { return path_; }

    /// @throws project::metadata::MetadataWriteFailure
    void flush() const;

    /// Flushes everything that was written to its file system.
    /// @throws project::metadata::MetadataWriteFailure
    void flushFileSystem() const;

private:
    host::Path path_;
    Descriptor descriptor_;
};

/// A regular file that is open for reading.
struct OpenFile {
    Descriptor descriptor;
    struct stat status {};  ///< of what is open
};

/// Why a file of this status is not read, empty if nothing speaks against it: reading a pipe or a device may take for
/// ever, and a symbolic link may lead anywhere.
std::u16string getIrregularity(const struct stat& status);

/// @param status of `path`, by lstat(2) or fstat(2)
/// @throws MetadataReadFailure if there is an irregularity
void requireRegular(const Path& path, const struct stat& status);

/// Opens `file` for reading. What is no regular file is neither waited for nor read.
/// @param flags O_NOFOLLOW, or 0 to follow a symbolic link
/// @return no value if `file` does not exist
/// @throws MetadataReadFailure if it is no regular file, or cannot be opened
std::optional<OpenFile> openRegularFile(const Path& file, int flags = O_NOFOLLOW);

/// The bytes of the regular file `file`; no value if it does not exist.
/// @throws MetadataReadFailure, also for anything but a regular file and for one that is larger than `maximumSize`
std::optional<std::string> readRegularFile(const Path& file, std::size_t maximumSize);

/// Makes `bytes` the content of `file`, which need not exist, and flushes it.
/// @throws MetadataWriteFailure
void writeFlushed(const Path& file, std::string_view bytes);

/// Gives `made`, which this process has just made, to the owner and group of `model`, if the process is the superuser's
/// and they differ: whoever changes a project with sudo must not take it from its owner. Where the system does not
/// allow that, nothing happens.
void giveToOwner(const Path& made, const struct stat& model);

/// As that, where `model` is what `made` lies in.
void giveToOwnerOfFolder(const Path& made);

/// `folder` and those above it that do not exist, from below. Where that cannot be found out, they are taken to exist:
/// making them tells what is wrong.
std::vector<host::Path> findMissingFolders(const host::Path& folder);

/// Makes `folder` and those above it that are missing, each for the owner of what it lies in, as `giveToOwner`.
/// @throws as `project::metadata::makeFolder`
void makeFolderOfOwner(const Path& folder);

/// Removes `path`, a file or a folder with everything below it. What does not exist is no error.
/// @throws MetadataWriteFailure
void removeTree(const Path& path);

/// Flushes the file or folder `path`.
/// @throws MetadataWriteFailure
void flushFile(const Path& path);

/// Flushes everything that was written to the file system of `folder`.
/// @throws MetadataWriteFailure
void flushFileSystem(const Path& folder);

}  // namespace store_support
