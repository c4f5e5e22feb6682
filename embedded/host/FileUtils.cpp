#include "host/FileUtils.hpp"

#include "embedded/host/NativePath.hpp"
#include "host/FileSystem.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace host {

namespace fs = std::filesystem;

namespace {

/// The parent of a path with one element is empty, and is the current folder.
fs::path toFolderName(const Path& path) {
    return toNative(path.empty() ? Path(u".") : path);
}

}  // namespace

bool FileUtils::existNoExcept(const Path& path) noexcept {
    try {
        return FileSystem::exists(path);
    } catch (...) {
        return false;
    }
}

bool FileUtils::isReadOnly(const Path& path) {
    if (faccessat(AT_FDCWD, toFolderName(path).c_str(), W_OK, AT_EACCESS) == 0)
        return false;
    const int error = errno;
    if (error == EACCES || error == EPERM || error == EROFS)
        return true;
    throwSystemError(path, error);
}

bool FileUtils::isReadOnlyNoExcept(const Path& path) noexcept {
    try {
        return isReadOnly(path);
    } catch (...) {
        return false;
    }
}

void FileUtils::makeWritable(const Path& path) {
    const fs::path entry = withoutTrailingSeparators(toFolderName(path));
    struct stat status {};
    if (lstat(entry.c_str(), &status) != 0)
        throwSystemError(path, errno);
    if (S_ISLNK(status.st_mode))
        return;
    // A link may have taken its place by now: that is not followed either, but an error.
    if (fchmodat(AT_FDCWD, entry.c_str(), (status.st_mode & 07777U) | S_IWUSR, AT_SYMLINK_NOFOLLOW) != 0)
        throwSystemError(path, errno);
}

Path FileUtils::followLink(const Path& path) {
    const fs::path entry = withoutTrailingSeparators(toNative(path));
    std::error_code code;
    if (!fs::is_symlink(entry, code))
        return path;
    const fs::path target = fs::canonical(entry, code);
    return code ? path : Path::fromAccessName(target.native());
}

Path FileUtils::makeAbsolute(const Path& path) {
    if (!path.empty() && path.text().front() == u'/')
        return path;
    std::error_code code;
    const Path current = Path::fromAccessName(fs::current_path(code).native());
    if (code)
        throwFileSystemError(u".", code);
    return path.empty() ? current : current / path;
}

Path FileUtils::normalize(const Path& path) {
    std::string normal = fs::path(path.accessName()).lexically_normal().native();
    // The standard library keeps separators at the end, and where there is nothing but separators.
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return Path::fromAccessName(normal);
}

bool FileUtils::isAncestor(const Path& ancestor, const Path& descendant) {
    // Without the empty element that a separator at the end stands for.
    const auto elements = [](const Path& path) {
        std::vector<std::string> names;
        for (const fs::path& element : fs::path(path.accessName())) {
            if (!element.empty())
                names.push_back(element.native());
        }
        return names;
    };
    const auto above = elements(ancestor);
    const auto below = elements(descendant);
    return !above.empty() && above.size() < below.size() && std::equal(above.begin(), above.end(), below.begin());
}

}  // namespace host
