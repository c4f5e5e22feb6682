/// project-metadata scan: metadata for every file and folder below a folder.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.hpp"
#include "cli/Errors.hpp"
#include "cli/FolderScan.hpp"
#include "cli/Output.hpp"
#include "cli/Positionals.hpp"
#include "cli/Progress.hpp"
#include "cli/Project.hpp"
#include "cli/ScanUpdate.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

/// Everything below `folder` but the metadata of the project itself.
std::vector<ScannedFile> readFolder(const host::Path& root, const host::Path& folder) {
    const auto identity = FileIdentity::of(folder);
    if (!identity)
        throw CommandError(Status::failure, "The folder " + quoted(folder) + " does not exist");
    const auto metadataFolder = FileIdentity::of(pm::ProjectMetadataLocation(root).getDirectory());
    if (identity == metadataFolder)
        throw CommandError(Status::usage, quoted(folder) + " is the metadata folder of the project itself");
    Progress progress("Scanning");
    return scanFolder(folder, metadataFolder, progress);
}

std::string count(std::size_t number, const std::string& thing) {
    return std::to_string(number) + ' ' + thing + (number == 1 ? "" : "s");
}

Status scan(const host::Path& root, const host::Path& folder) {
    const auto store = openProject(root);
    const std::vector<ScannedFile> files = readFolder(root, folder);
    {
        const Progress progress("Storing");
        updateStore(*store, files);
    }
    const auto isFolder = [](const ScannedFile& file) { return file.kind == FileKind::folder; };
    const auto folders = static_cast<std::size_t>(std::count_if(files.begin(), files.end(), isFolder));
    // The first element is the scanned folder itself, which has no node.
    print(count(files.size() - folders, "file") + ", " + count(folders - 1, "folder") + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"FOLDER", "The folder to describe; without, ROOT", Positional::Kind::optional}});
    return [positionals] {
        const auto [root, texts] = positionals.get();
        return scan(root, texts.empty() ? root : host::Path::fromAccessName(texts[0]));
    };
}

const Command command(Group::change, "scan", "Describe every file and folder of a folder in a project's metadata",
                      configure);

}  // namespace

}  // namespace cli
