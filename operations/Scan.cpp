#include "operations/Scan.hpp"

#include <algorithm>
#include <vector>

#include "operations/Errors.hpp"
#include "operations/FolderScan.hpp"
#include "operations/Project.hpp"
#include "operations/ScanUpdate.hpp"
#include "operations/Workshop.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace operations {

namespace pm = project::metadata;

namespace {

/// The metadata folder of the project itself, and what repairs and conversions put beside it.
std::vector<FileIdentity> findOwnFolders(const host::Path& root) {
    const host::Path metadata = pm::ProjectMetadataLocation(root).getDirectory();
    std::vector<host::Path> folders = Workshop::findLeftovers(root);
    folders.insert(folders.begin(), {metadata, metadata.text() + u".damaged"});
    for (const auto& factory : pm::getRegisteredFactories())
        folders.emplace_back(metadata.text() + u'.' + factory->getName());
    std::vector<FileIdentity> identities;
    for (const host::Path& folder : folders) {
        if (const auto identity = FileIdentity::of(folder))
            identities.push_back(*identity);
    }
    return identities;
}

std::vector<ScannedFile> readFolder(const host::Path& root, const host::Path& folder, Progress& progress) {
    const auto identity = FileIdentity::of(folder);
    if (!identity)
        throw OperationError(ErrorKind::failure, "The folder " + quoted(folder) + " does not exist");
    if (identity == FileIdentity::of(pm::ProjectMetadataLocation(root).getDirectory()))
        throw OperationError(ErrorKind::usage, quoted(folder) + " is the metadata folder of the project itself");
    return scanFolder(folder, findOwnFolders(root), progress);
}

}  // namespace

ScanResult scanInto(const host::Path& root, const host::Path& folder, bool isDryRun, Observer& observer) {
    const auto store = openProject(root);
    const std::vector<ScannedFile> found = readFolder(root, folder, *observer.start("Scanning"));
    ScanResult result;
    result.change = findScanChange(*store, found, *observer.start("Comparing"));
    if (!isDryRun) {
        const auto progress = observer.start("Storing");
        applyChange(*store, result.change);
    }
    // The first one is the scanned folder itself, which has no node.
    const auto isFolder = [](const ScannedFile& file) { return file.kind == FileKind::folder; };
    result.folders = static_cast<std::size_t>(std::count_if(found.begin() + 1, found.end(), isFolder));
    result.files = found.size() - 1 - result.folders;
    return result;
}

}  // namespace operations
