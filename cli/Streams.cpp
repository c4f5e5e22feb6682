#include "cli/Streams.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <string_view>
#include <system_error>

#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "host/FileSystem.hpp"
#include "host/Interruption.hpp"

namespace cli {

namespace {

constexpr const char* standardName = "-";

/// More than any store takes for one value, and less than what would fill the memory of most machines.
constexpr std::size_t largestInput = 1'000'000'000;

std::unique_ptr<host::TempDirGuard> makeScratchFolder() {
    auto guard =
        std::make_unique<host::TempDirGuard>(host::FileSystem::temp_directory_name().text(), u"project-metadata-", u"");
    return guard;
}

host::Path fileIn(const host::TempDirGuard& guard, const char* name) {
    return host::Path(guard.getDirectoryName()) / host::Path::fromAccessName(name);
}

/// Passes what `descriptor` gives to `take`, piece by piece.
template <class Take>
void readAll(int descriptor, const std::string& what, const Take& take) {
    std::array<char, 65536> buffer{};
    std::size_t size = 0;
    for (;;) {
        host::Interruption::throwIfRequested();
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw CommandError(Status::failure, what + " cannot be read: " + std::generic_category().message(errno));
        if (count == 0)
            return;
        size += static_cast<std::size_t>(count);
        if (size > largestInput)
            throw CommandError(Status::failure, what + " is larger than " + formatSize(largestInput));
        take(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
    }
}

/// To be called before the standard input is read.
void claimStandardInput() {
    static bool isTaken = false;
    if (isTaken)
        throw CommandError(Status::usage, "\"-\" is there twice, but the standard input can be read only once");
    isTaken = true;
}

const char* const standardInput = "The standard input";

}  // namespace

std::string readInput(const std::string& name) {
    std::string bytes;
    const auto take = [&](std::string_view piece) { bytes += piece; };
    if (name == standardName) {
        claimStandardInput();
        readAll(STDIN_FILENO, standardInput, take);
        return bytes;
    }
    const std::string what = "The file \"" + name + '"';
    const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        throw CommandError(Status::failure, what + " cannot be read: " + std::generic_category().message(errno));
    try {
        readAll(descriptor, what, take);
    } catch (...) {
        close(descriptor);
        throw;
    }
    close(descriptor);
    return bytes;
}

InputFile::InputFile(const std::string& name) : path_(host::Path::fromAccessName(name)) {
    if (name != standardName)
        return;
    claimStandardInput();
    guard_ = makeScratchFolder();
    path_ = fileIn(*guard_, "standard-input");
    std::ofstream file(path_.accessName(), std::ios::binary);
    readAll(STDIN_FILENO, standardInput,
            [&](std::string_view piece) { file.write(piece.data(), static_cast<std::streamsize>(piece.size())); });
    file.close();
    if (!file)
        throw CommandError(Status::failure, "The standard input cannot be kept in " + quoted(path_));
}

OutputFile::OutputFile(const std::string& name) : path_(host::Path::fromAccessName(name)) {
    if (name != standardName)
        return;
    guard_ = makeScratchFolder();
    path_ = fileIn(*guard_, "standard-output");
}

void OutputFile::finish() const {
    if (!isStandard())
        return;
    print(readInput(path_.accessName()));
    flushOutput();
}

}  // namespace cli
