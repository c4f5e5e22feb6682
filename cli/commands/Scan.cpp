/// project-metadata scan: metadata for every file and folder below a folder.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/Progress.hpp"
#include "operations/FolderScan.hpp"
#include "operations/Project.hpp"
#include "operations/ScanUpdate.hpp"
#include "operations/StoreChange.hpp"
#include "operations/Workshop.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::FileIdentity;
using operations::ScannedFile;
using operations::StoreChange;

/// The metadata folder of the project itself, and what `check --repair` and `convert` put beside it.
std::vector<FileIdentity> findOwnFolders(const host::Path& root) {
    const host::Path metadata = pm::ProjectMetadataLocation(root).getDirectory();
    std::vector<host::Path> folders = operations::Workshop::findLeftovers(root);
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

std::vector<ScannedFile> readFolder(const host::Path& root, const host::Path& folder) {
    const auto identity = FileIdentity::of(folder);
    if (!identity)
        throw CommandError(Status::failure, "The folder " + quoted(folder) + " does not exist");
    if (identity == FileIdentity::of(pm::ProjectMetadataLocation(root).getDirectory()))
        throw CommandError(Status::usage, quoted(folder) + " is the metadata folder of the project itself");
    Progress progress("Scanning");
    return operations::scanFolder(folder, findOwnFolders(root), progress);
}

struct Flags {
    std::shared_ptr<const bool> json;
    std::shared_ptr<const bool> dryRun;
};

/// @param files the first of them is the scanned folder itself, which has no node
void printCounts(const StoreChange& change, const std::vector<ScannedFile>& files, const Flags& flags) {
    const auto isFolder = [](const ScannedFile& file) { return file.kind == operations::FileKind::folder; };
    const auto folders = static_cast<std::size_t>(std::count_if(files.begin(), files.end(), isFolder)) - 1;
    const std::size_t others = files.size() - 1 - folders;
    if (*flags.json) {
        Json json = toJson(change);
        json["files"] = others;
        json["folders"] = folders;
        printJson(json);
        return;
    }
    printPaths(change);
    printNote((*flags.dryRun ? "Not done: " : "") + countChanges(change) + "; " + formatCount(others, "file") + ", " +
              formatCount(folders, "folder") + '\n');
}

Status scan(const host::Path& root, const host::Path& folder, const Flags& flags) {
    const auto store = operations::openProject(root);
    const std::vector<ScannedFile> files = readFolder(root, folder);
    StoreChange change;
    {
        Progress progress("Comparing");
        change = operations::findScanChange(*store, files, progress);
    }
    if (!*flags.dryRun) {
        const Progress progress("Storing");
        operations::applyChange(*store, change);
    }
    printCounts(change, files, flags);
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"FOLDER", "The folder to describe; without, ROOT", Positional::Kind::optional}});
    return [positionals, flags = Flags{addJson(app), addDryRun(app)}] {
        const auto [root, texts] = positionals.get();
        return scan(root, texts.empty() ? root : host::Path::fromAccessName(texts[0]), flags);
    };
}

const Command command(Group::change, "scan", "Describe every file and folder of a folder in a project's metadata",
                      configure);

}  // namespace

}  // namespace cli
