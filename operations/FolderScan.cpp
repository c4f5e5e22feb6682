#include "operations/FolderScan.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <system_error>
#include <utility>

#include "host/FileSystem.hpp"
#include "host/Text.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace operations {

namespace {

using FileStatus = struct stat;

/// The properties of what `path` names; no value if it names nothing.
/// @param call `stat` or `lstat`
std::optional<FileStatus> readStatus(const host::Path& path, int (*call)(const char*, FileStatus*)) {
    FileStatus status{};
    if (call(path.accessName().c_str(), &status) == 0)
        return status;
    if (errno == ENOENT || errno == ENOTDIR)
        return std::nullopt;
    throw host::FileSystemException(path, std::error_code(errno, std::generic_category()));
}

FileKind kindOf(const FileStatus& status) {
    if (S_ISREG(status.st_mode))
        return FileKind::file;
    if (S_ISDIR(status.st_mode))
        return FileKind::folder;
    return S_ISLNK(status.st_mode) ? FileKind::symlink : FileKind::other;
}

/// What lies in `folder`, sorted by name; nothing if the folder has vanished.
std::vector<ScannedFile> listFolder(const host::Path& folder, const std::vector<FileIdentity>& leftOut,
                                    Progress& progress) {
    std::vector<host::Path> paths;
    try {
        paths = project::metadata::listChildFiles(folder);
    } catch (const project::metadata::ListChildFilesFailure&) {
        if (readStatus(folder, lstat))
            throw;
    }

    std::vector<ScannedFile> files;
    for (const host::Path& path : paths) {
        std::u16string name = path.fileName().text();
        const std::optional<FileStatus> status = readStatus(path, lstat);
        if (name == u".git" || !status)
            continue;
        if (std::count(leftOut.begin(), leftOut.end(), FileIdentity{status->st_dev, status->st_ino}) > 0)
            continue;
        ScannedFile& file = files.emplace_back();
        file.name = std::move(name);
        file.kind = kindOf(*status);
        file.size = static_cast<std::uint64_t>(status->st_size);
        file.modified = status->st_mtim;
        progress.advance();
    }
    std::sort(files.begin(), files.end(), [](const ScannedFile& a, const ScannedFile& b) { return a.name < b.name; });
    return files;
}

}  // namespace

std::optional<FileIdentity> FileIdentity::of(const host::Path& path) {
    const std::optional<FileStatus> status = readStatus(path, stat);
    if (!status)
        return std::nullopt;
    return FileIdentity{status->st_dev, status->st_ino};
}

std::vector<ScannedFile> scanFolder(const host::Path& folder, const std::vector<FileIdentity>& leftOut,
                                    Progress& progress) {
    std::vector<ScannedFile> scan(1);
    std::deque<std::pair<std::size_t, host::Path>> folders{{0, folder}};
    while (!folders.empty()) {
        const auto [index, path] = std::move(folders.front());
        folders.pop_front();
        std::vector<ScannedFile> children = listFolder(path, leftOut, progress);
        scan[index].firstChild = scan.size();
        scan[index].childCount = children.size();
        for (ScannedFile& child : children) {
            if (child.kind == FileKind::folder)
                folders.emplace_back(scan.size(), path / child.name);
            child.parent = index;
            scan.push_back(std::move(child));
        }
    }
    return scan;
}

std::u16string formatTime(const std::timespec& time) {
    std::tm utc{};
    std::array<char, 64> text{};
    if (!gmtime_r(&time.tv_sec, &utc) || std::strftime(text.data(), text.size(), "%FT%T", &utc) == 0)
        return {};
    std::string result = text.data();
    if (time.tv_nsec != 0) {
        std::snprintf(text.data(), text.size(), ".%09ld", time.tv_nsec);
        result += text.data();
        result.erase(result.find_last_not_of('0') + 1);
    }
    return host::fromUtf8(result + 'Z');
}

}  // namespace operations
