/// Files that the command line names, where "-" is the standard input or output.
///
/// Main thread only.
#pragma once

#include <memory>
#include <string>

#include "host/Path.hpp"
#include "host/TempDirGuard.hpp"

namespace cli {

/// All bytes of the file `name`, or of the standard input.
/// @throws CommandError if it cannot be read, is larger than 1 GB, or is the standard input for the second time
std::string readInput(const std::string& name);

/// A file to be read, such as one that `export` wrote. The standard input is put into a scratch file first.
class InputFile {
public:
    /// @throws as `readInput`
    explicit InputFile(const std::string& name);

    const host::Path& path() const { return path_; }

private:
    std::unique_ptr<host::TempDirGuard> guard_;
    host::Path path_;
};

/// A file to be written. What is to go to the standard output is put into a scratch file first.
class OutputFile {
public:
    explicit OutputFile(const std::string& name);

    const host::Path& path() const { return path_; }

    /// Whether it is the standard output, where no note must follow.
    bool isStandard() const { return guard_ != nullptr; }

    /// To be called when the file is there: prints it, if it is for the standard output.
    /// @throws as `print`
    void finish() const;

private:
    std::unique_ptr<host::TempDirGuard> guard_;
    host::Path path_;
};

}  // namespace cli
