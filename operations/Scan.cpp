#include "operations/Scan.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "operations/DryRun.hpp"
#include "operations/Errors.hpp"
#include "operations/FolderScan.hpp"
#include "operations/Project.hpp"
#include "operations/ScanRecord.hpp"
#include "operations/Workshop.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/StoreErrors.hpp"

namespace operations {

namespace fs = std::filesystem;

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

/// The names that lead from `top` down to `folder`, where both really are; no value if it is not there.
std::optional<std::vector<std::u16string>> findWay(const host::Path& top, const host::Path& folder) {
    const fs::path way = fs::canonical(folder.accessName()).lexically_relative(fs::canonical(top.accessName()));
    std::vector<std::u16string> names;
    for (const fs::path& name : way) {
        if (name == "..")
            return std::nullopt;
        if (name != ".")
            names.push_back(host::Path::fromAccessName(name.native()).text());
    }
    return names;
}

/// What git keeps for itself is left out of every scan, and so it is no place for one.
/// @param names those that lead to `folder`
void requireNoGitFolder(const host::Path& folder, const std::vector<std::u16string>& names) {
    if (std::find(names.begin(), names.end(), u".git") != names.end())
        throw OperationError(ErrorKind::usage, quoted(folder) + " belongs to a folder \".git\", which is left out");
}

FolderScan readFolder(const host::Path& root, const host::Path& folder, const std::vector<std::u16string>& way,
                      const ScanRequest& request, Progress& progress) {
    ScanRules rules{findOwnFolders(root), request.heedGit, request.isExcluded};
    return scanFolder(way.empty() ? folder : root, way, rules, progress);
}

/// Of the paths that the scan did not look at, what is known stays.
void remember(ScanRecord& record, const ScanChange& change, const std::vector<std::u16string>& way,
              const FolderScan& found) {
    std::u16string top;
    for (const std::u16string& name : way)
        top += ScanRecord::makeKey(pm::MetadataPath({{u"Folder", name}}));
    record.keep(change.traces, change.fingerprints, [&](const std::u16string& key) {
        return !found.problems.empty() || key.compare(0, top.size(), top) != 0;
    });
}

}  // namespace

ScanResult scanInto(const host::Path& root, const ScanRequest& request, Observer& observer) {
    const auto store = openProject(root);
    const host::Path folder = request.folder.value_or(root);
    const host::Path metadata = pm::ProjectMetadataLocation(root).getDirectory();
    if (!FileIdentity::of(folder))
        throw OperationError(ErrorKind::failure, "The folder " + quoted(folder) + " does not exist");
    if (!leadsToFolder(folder.accessName()))
        store_support::raiseReadError(folder, ENOTDIR);
    if (findWay(metadata, folder))
        throw OperationError(ErrorKind::usage,
                             quoted(folder) + " belongs to the metadata folder of the project itself");
    const auto wayInProject = findWay(root, folder);
    const std::vector<std::u16string> way = wayInProject.value_or(std::vector<std::u16string>());
    requireNoGitFolder(folder, wayInProject ? way : *findWay(host::Path(u"/"), folder));
    const FolderScan found = readFolder(root, folder, way, request, *observer.start("Scanning"));

    ScanRecord record(root, metadata);
    ScanResult result;
    result.change = findScanChange(*store, found.files, request.wish, record, *observer.start("Comparing"));
    result.problems = found.problems;
    if (request.isDryRun) {
        requireFeasible(*store, root, result.change.change);
    } else {
        const auto progress = observer.start("Storing");
        applyChange(*store, result.change.change);
        try {
            remember(record, result.change, way, found);
        } catch (const host::UserException& error) {
            result.notRemembered = host::toUtf8(explain(error));
        }
    }
    // The first ones are the scanned folder itself and those that lead to it.
    for (std::size_t i = way.size() + 1; i < found.files.size(); ++i) {
        if (!found.files[i].isLeftOut)
            ++(found.files[i].kind == FileKind::folder ? result.folders : result.files);
    }
    return result;
}

}  // namespace operations
