#include "project/metadata/FileUtilities.hpp"

#include <algorithm>
#include <set>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/SettingsService.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace project::metadata {

namespace {

/// Removes a file, or a folder with everything below it. Unlike `makeFolder`, the second attempt makes the parent
/// folder writable only if it is read-only, and the path itself in any case: to empty a folder, that folder must be
/// writable too.
void removeFileOrFolder(const host::Path& path) {
    try {
        host::FileSystem::remove_all(path);
    } catch (const host::AccessDeniedException&) {
        const host::Path parent = getParentFolder(path);
        if (host::FileUtils::isReadOnly(parent))
            handleReadOnlyFile(parent);
        handleReadOnlyFile(path);
        try {
            host::FileSystem::remove_all(path);
        } catch (...) {
            raise<ReadOnlyMetadataFailure>(path.text());
        }
    } catch (...) {
        raise<MetadataWriteFailure>(path.text(), getCauseMessage());
    }
}

}  // namespace

void purgeNonExistentFiles(std::vector<host::Path>& paths) {
    const auto isMissing = [](const host::Path& path) { return !host::FileSystem::exists(path); };
    paths.erase(std::remove_if(paths.begin(), paths.end(), isMissing), paths.end());
}

host::Path getParentFolder(const host::Path& path) {
    return path.parentPath().native();
}

bool isParent(const host::Path& parent, const host::Path& child) {
    using host::FileUtils;
    const host::Path normalizedChild = FileUtils::normalize(FileUtils::makeAbsolute(child));
    const host::Path normalizedParent = FileUtils::normalize(FileUtils::makeAbsolute(parent));
    return FileUtils::isAncestor(normalizedParent, normalizedChild);
}

bool ends_with(const std::u16string& text, const std::u16string& suffix) {
    return suffix.size() < text.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::u16string stripExtension(const std::u16string& text, const std::u16string& extension) {
    return ends_with(text, extension) ? text.substr(0, text.size() - extension.size()) : text;
}

void handleReadOnlyFile(const host::Path& path) {
    const auto settings = host::SettingsService::getSettingsRoot();
    if (!settings) {
        logger().log(host::Severity::warning, "\"settings::standalone::getSettingsRoot()\" returned null");
        return;
    }
    if (settings->getGroup("korvex.project.metadata")->getText("MakeReadOnlyMetadataWritable", "") != u"yes")
        return;
    try {
        host::FileUtils::makeWritable(path);
    } catch (...) {
        raise<FailedToMakeMetadataWritable>(path.text(), getCauseMessage());
    }
}

void makeFolder(const host::Path& path) {
    try {
        host::FileSystem::create_directories(path);
    } catch (const host::AccessDeniedException&) {
        handleReadOnlyFile(host::FileUtils::followLink(getParentFolder(path)));
        try {
            host::FileSystem::create_directories(path);
        } catch (...) {
            raise<ReadOnlyMetadataFailure>(path.text());
        }
    } catch (...) {
        raise<MetadataWriteFailure>(path.text(), getCauseMessage());
    }
}

std::vector<host::Path> listChildFiles(const host::Path& folder) {
    if (folder.empty())
        return {};
    try {
        std::vector<host::Path> files;
        for (host::DirectoryIterator entry(folder); entry.isOpen(); entry.increment())
            files.push_back(entry.fullPathName().native());
        return files;
    } catch (...) {
        raise<ListChildFilesFailure>(folder.text(), getCauseMessage());
    }
}

void deleteFiles(const std::vector<host::Path>& paths) {
    for (const host::Path& path : std::set<host::Path>(paths.begin(), paths.end())) {
        if (host::FileUtils::existNoExcept(path))
            removeFileOrFolder(path);
    }
}

host::DiagnosticLogger& logger() {
    static auto& theLogger = *new host::DiagnosticLogger("project::metadata");
    return theLogger;
}

}  // namespace project::metadata
