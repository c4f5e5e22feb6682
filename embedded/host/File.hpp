/// An open file, for what streams cannot do: exclusive creation, and errors with their reason.
///
/// Inside the embedded host only; others take a stream, or `FileSystem`. One thread at a time may use an object.
#pragma once

#include "host/Path.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace host {

class File {
public:
    /// Opens `path` with the flags and the mode of open(2).
    /// @throws FileSystemException, as all operations here
    File(const Path& path, int flags, mode_t mode = 0);

    /// Closes the file if it is open still.
    ~File();

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    struct stat getStatus() const;

    /// Reads up to `size` bytes and returns how many; 0 at the end of the file.
    std::size_t read(char* bytes, std::size_t size);

    /// Reads all that is left.
    std::string readAll();

    void write(const char* bytes, std::size_t size);

    /// Some file systems report only here that what was written could not be stored.
    void close();

private:
    /// Throws what `errno` says if `result`, which a system call returned, is negative.
    template <class Result>
    Result check(Result result) const;

    Path path_;
    int descriptor_;
};

}  // namespace host
