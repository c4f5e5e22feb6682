#include "host/FileSystem.hpp"

#include "embedded/host/File.hpp"
#include "embedded/host/NativePath.hpp"
#include "embedded/host/Utf.hpp"
#include "host/Text.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <utility>
#include <vector>

namespace host {

namespace fs = std::filesystem;

namespace {

/// Makes the file `to` with the content and the permissions of `from`, except those that the file mode creation mask
/// takes away. Refuses a `to` that exists; a `to` that cannot be completed is removed again.
void copyToNewFile(const Path& from, const Path& to) {
    // Without O_NONBLOCK, opening a FIFO would wait for somebody to write into it.
    File source(from, O_RDONLY | O_NONBLOCK);
    const auto status = source.getStatus();
    if (!S_ISREG(status.st_mode))
        throwSystemError(from, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);

    File target(to, O_WRONLY | O_CREAT | O_EXCL, status.st_mode & 0777U);
    try {
        std::array<char, 1 << 16> buffer{};
        while (const std::size_t count = source.read(buffer.data(), buffer.size()))
            target.write(buffer.data(), count);
        target.close();
    } catch (...) {
        unlink(toNative(to).c_str());
        throw;
    }
}

/// Puts a copy of `from` in the place of the file `to`, which holds either its old or its new content at any moment.
void replaceByCopy(const Path& from, const Path& to) {
    const fs::path target = fs::canonical(toNative(to));
    if (!fs::is_regular_file(target))
        throwFileSystemError(to, std::make_error_code(std::errc::file_exists));
    const Path copy = Path::fromAccessName(target.native() + '.' + std::to_string(std::random_device()()));
    copyToNewFile(from, copy);
    std::error_code code;
    fs::rename(toNative(copy), target, code);
    if (code) {
        unlink(toNative(copy).c_str());
        throwFileSystemError(to, code);
    }
}

/// As std::filesystem::create_directories, which takes a parent that it cannot look at for one that is there. A folder
/// that others make and remove meanwhile is never said to be no folder: it is there, or it does not exist.
void makeFolders(const fs::path& folder) {
    std::vector<fs::path> missing;
    fs::path place = withoutTrailingSeparators(folder);
    fs::file_status status;
    for (; !place.empty() && !fs::exists(status = fs::status(place)); place = place.parent_path())
        missing.push_back(place);
    if (missing.empty() && !fs::is_directory(status))
        throw fs::filesystem_error({}, folder, std::make_error_code(std::errc::not_a_directory));
    for (auto each = missing.rbegin(); each != missing.rend(); ++each) {
        std::error_code code;
        fs::create_directory(*each, code);
        if (code == std::errc::file_exists) {
            const fs::file_status now = fs::symlink_status(*each);
            if (fs::is_directory(now))
                code.clear();
            else if (!fs::exists(now))
                code = std::make_error_code(std::errc::no_such_file_or_directory);
        }
        if (code)
            throw fs::filesystem_error({}, *each, code);
    }
}

/// Runs `operation` on `path`, and turns the errors of std::filesystem into ours.
template <class Operation>
auto withOurErrors(const Path& path, const Operation& operation) {
    try {
        return operation(toNative(path));
    } catch (const fs::filesystem_error& error) {
        // The second path, if there is one, is the entry below the first one at which the operation failed.
        const bool below = !error.path2().empty();
        throwFileSystemError(below ? Path::fromAccessName(error.path2().native()) : path, error.code());
    }
}

}  // namespace

FileSystemException::FileSystemException(Path path, std::error_code code)
    : path_(std::move(path)), code_(code), text_(code.message() + ": \"" + toUtf8(toReadable(path_.text())) + '"') {}

struct DirectoryIterator::State {
    Path folder;
    fs::directory_iterator position;
};

DirectoryIterator::DirectoryIterator(const Path& folder)
    : state_(new State{folder,
                       withOurErrors(folder, [](const fs::path& native) { return fs::directory_iterator(native); })}) {}

DirectoryIterator::~DirectoryIterator() = default;

bool DirectoryIterator::isOpen() const {
    return state_->position != fs::directory_iterator();
}

Path DirectoryIterator::fullPathName() const {
    return state_->folder / Path::fromAccessName(state_->position->path().filename().native());
}

void DirectoryIterator::increment() {
    std::error_code code;
    state_->position.increment(code);
    if (code)
        throwFileSystemError(state_->folder, code);
}

bool FileSystem::exists(const Path& path) {
    return withOurErrors(path, [](const fs::path& native) { return fs::exists(native); });
}

void FileSystem::create_directories(const Path& path) {
    if (!path.empty())
        withOurErrors(path, makeFolders);
}

void FileSystem::remove_all(const Path& path) {
    withOurErrors(path, [](const fs::path& native) {
        const fs::path entry = withoutTrailingSeparators(native);
        if (fs::exists(fs::symlink_status(entry)))
            fs::remove_all(entry);
    });
}

void FileSystem::copy_file(const Path& from, const Path& to, CopyOption option) {
    if (option == CopyOption::overwriteExisting && exists(to))
        withOurErrors(to, [&](const fs::path&) { replaceByCopy(from, to); });
    else
        copyToNewFile(from, to);
}

Path FileSystem::temp_directory_name() {
    const char* name = secure_getenv("TMPDIR");
    Path folder = Path::fromAccessName(name && *name ? name : "/tmp");
    if (!withOurErrors(folder, [](const fs::path& native) { return fs::is_directory(native); }))
        throwSystemError(folder, exists(folder) ? ENOTDIR : ENOENT);
    return folder;
}

std::u16string FileSystem::getExceptionMessage(const FileSystemException& error) {
    return fromUtf8(error.what());
}

}  // namespace host
