/// project-metadata import: what export wrote, as the metadata of a project.

#include <memory>
#include <optional>
#include <string>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/CommandObserver.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "host/FileSystem.hpp"
#include "host/Text.hpp"
#include "operations/NewMetadata.hpp"
#include "operations/Project.hpp"
#include "operations/SingleFile.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::SingleFile;

struct Flags {
    bool replace = false;
    std::optional<std::string> store;
    std::optional<std::string> folder;
    std::shared_ptr<const bool> json;
    std::shared_ptr<const bool> dryRun;
};

SingleFile openFile(const host::Path& file) {
    if (!host::FileSystem::exists(file))
        throw CommandError(Status::failure, "There is no file " + quoted(file));
    CommandObserver observer;
    const Progress progress("Reading");
    return SingleFile(file, observer);
}

void requireUndamaged(const SingleFile& source, const host::Path& file) {
    if (source.damage().empty())
        return;
    const std::size_t others = source.damage().size() - 1;
    throw CommandError(Status::failure, quoted(file) + " is damaged, so nothing is imported: " +
                                            host::toUtf8(source.damage().front().problem) +
                                            (others > 0 ? "; and " + formatCount(others, "other problem") : ""));
}

/// The store that is to hold the content of the file. A new one writes nothing before its first change.
std::unique_ptr<pm::MetadataManager> openDestination(const host::Path& root, bool isNew, const Flags& flags) {
    if (isNew) {
        operations::chooseFolder(flags.folder);
        return operations::chooseStore(flags.store)->createManager(root);
    }
    if (flags.store || flags.folder) {
        throw CommandError(Status::usage, "The project " + quoted(root) +
                                              " has metadata already; --store and --folder are for new ones, and "
                                              "\"project-metadata convert\" changes both");
    }
    auto store = operations::openProject(root);
    const bool hasContent =
        !store->getChildren({}).empty() || store->hasNode({}) || !operations::findDamage(*store).empty();
    if (hasContent && !flags.replace) {
        throw CommandError(Status::failure,
                           "The project " + quoted(root) + " has metadata already; --replace replaces all of it");
    }
    return store;
}

Status importFile(const host::Path& file, const host::Path& root, const Flags& flags) {
    operations::requireNewRoot(root);
    const bool makesRoot = !operations::leadsToFolder(root.accessName());
    const SingleFile source = openFile(file);
    requireUndamaged(source, file);
    const bool isNew = !pm::ProjectMetadataLocation(root).hasCoreFile();
    const auto destination = openDestination(root, isNew, flags);
    operations::StoreChange change;
    {
        Progress progress("Comparing");
        change = operations::findMirrorChange(source.store(), *destination, progress);
    }
    if (isNew && !change.paths)
        change.paths.emplace(1);  // also a file without content makes a project
    if (!*flags.dryRun) {
        const Progress progress("Storing");
        operations::applyChange(*destination, change);
    }
    if (*flags.json) {
        printJson(toJson(change));
    } else {
        if (makesRoot)
            printNote((*flags.dryRun ? "Would make the folder " : "Made the folder ") + escapeName(root.text()) + '\n');
        printPaths(change);
        printNote((*flags.dryRun ? "Not done: " : "") + countChanges(change) + '\n');
    }
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"FILE", "A file that \"project-metadata export\" wrote"}}, RootPlace::last);
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "--replace", flags->replace, "Replace all metadata that the project has");
    addOption(app, "--store", flags->store, "The kind of store of a new project", "NAME");
    addOption(app, "--folder", flags->folder, "The metadata folder of a new project, relative to ROOT", "NAME");
    flags->json = addJson(app);
    flags->dryRun = addDryRun(app);
    return [positionals, flags] {
        const auto [root, texts] = positionals.get();
        return importFile(host::Path::fromAccessName(texts[0]), root, *flags);
    };
}

const Command command(Group::move, "import", "Read exported metadata into a project, which may be new", configure);

}  // namespace

}  // namespace cli
