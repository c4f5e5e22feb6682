#include "operations/DryRun.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <set>

#include "host/FileUtils.hpp"
#include "host/SettingsService.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/Disk.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/TreeRules.hpp"
#include "store_support/XmlFile.hpp"

namespace operations {

namespace {

/// Whether the user allows to make metadata writable (`handleReadOnlyFile`).
bool mayMakeWritable() {
    const auto settings = host::SettingsService::getSettingsRoot();
    return settings &&
           settings->getGroup("korvex.project.metadata")->getText("MakeReadOnlyMetadataWritable", "") == u"yes";
}

void requireWritable(const host::Path& path) {
    if (host::FileUtils::isReadOnlyNoExcept(path) && !mayMakeWritable())
        pm::raise<pm::ReadOnlyMetadataFailure>(path.text());
}

/// `folder`, or the nearest one above it that is there and in which it would be made.
host::Path findExisting(host::Path folder) {
    folder = host::FileUtils::makeAbsolute(folder);
    while (!store_support::exists(folder) && folder != folder.parentPath())
        folder = folder.parentPath();
    return folder;
}

void requireFeasibleFolder(const host::Path& folder) {
    const host::Path place = host::FileUtils::followLink(findExisting(folder));
    struct stat status {};
    if (stat(place.accessName().c_str(), &status) != 0)
        store_support::raiseSystemError(place, errno);
    if (!S_ISDIR(status.st_mode))
        store_support::raiseSystemError(folder, ENOTDIR);
    requireWritable(place);
}

/// Refuses `file` if the store neither replaces nor removes it, for what it is or holds.
/// @param format reads single files of the store; null if it has none
void requireSound(const host::Path& file, const pm::MetadataFileFormat* format) {
    try {
        const auto status = store_support::findStatus(file);
        if (!status)
            return;
        store_support::requireRegular(file, *status);
        if (format && !format->readFile(file))
            pm::raise<pm::MetadataReadFailure>(file.text(), store_support::readXmlFile(file, *status).problem);
    } catch (const pm::MetadataReadFailure& error) {
        pm::raise<pm::MetadataWriteFailure>(file.text(), store_support::getReadProblem(error));
    }
}

/// Refuses `change` if a file that it writes, or removes, may not be written.
void requireWritableFiles(const pm::StoreFileLister& store, const pm::ProjectMetadataLocation& location,
                          const StoreChange& change) {
    const auto type = location.hasCoreFile() ? findType(location.getCoreFile()) : std::nullopt;
    const auto factory = type ? pm::getNamedFactory(*type) : nullptr;
    const auto* const format = dynamic_cast<const pm::MetadataFileFormat*>(factory.get());
    std::set<host::Path> known;
    const auto requireNode = [&](const pm::MetadataPath& path) {
        const host::Path file = store.getNodeFile(path);
        // What is on a server is in no file; and an empty path would be the current folder.
        if (file.empty() || !known.insert(file).second)
            return;
        requireFeasibleFile(file);
        requireSound(file, format);
    };
    for (const auto& [path, node] : change.nodes)
        requireNode(path);
    for (const pm::MetadataPath& path : change.added)
        requireNode(path);
    for (const pm::MetadataPath& path : change.removed)
        requireNode(path);
    // Where all paths are in one file, their order is too.
    if (change.paths && !change.paths->empty() && store.getNodeFile(change.paths->back()) == store.getNodeFile({}))
        requireNode({});
}

}  // namespace

void requireFeasible(const pm::MetadataManager& store, const host::Path& root, const StoreChange& change) {
    if (change.isEmpty())
        return;
    requireFeasible(root);
    const pm::ProjectMetadataLocation location(root);
    const host::Path folder = location.getDirectory();
    if (const auto* const lister = dynamic_cast<const pm::StoreFileLister*>(&store))
        requireWritableFiles(*lister, location, change);
    for (const auto& [path, node] : change.nodes) {
        store_support::requireStorable(path, folder);
        if (node)
            store_support::requireStorable(*node, folder);
    }
    for (const pm::MetadataPath& path : change.added)
        store_support::requireStorable(path, folder);
    if (change.paths) {
        for (const pm::MetadataPath& path : *change.paths)
            store_support::requireStorable(path, folder);
    }
}

void requireFeasible(const host::Path& root) {
    requireFeasibleFolder(pm::ProjectMetadataLocation(root).getDirectory());
}

void requireFeasibleFile(const host::Path& file) {
    if (!store_support::exists(file))
        return requireFeasibleFolder(pm::getParentFolder(host::FileUtils::makeAbsolute(file)));
    const host::Path target = host::FileUtils::followLink(file);
    requireWritable(target);
    requireFeasibleFolder(pm::getParentFolder(host::FileUtils::makeAbsolute(target)));
}

void requireFeasibleOutput(const host::Path& file) {
    const host::Path target = host::FileUtils::makeAbsolute(host::FileUtils::followLink(file));
    if (!store_support::exists(pm::getParentFolder(target)))
        store_support::raiseSystemError(file, ENOENT);
    requireFeasibleFile(file);
}

}  // namespace operations
