/// project-metadata init: creates the metadata of a project.

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/Command.hpp"
#include "cli/Errors.hpp"
#include "cli/Output.hpp"
#include "cli/Project.hpp"
#include "cli/SafeText.hpp"
#include "cli/SettingsOverride.hpp"
#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

struct Arguments {
    std::string root = ".";
    std::optional<std::string> store;
    std::optional<std::string> folder;
};

/// @throws CommandError if the project has a core file already
void requireNoMetadata(const host::Path& root) {
    const pm::ProjectMetadataLocation location(root);
    const std::optional<host::Path> coreFile = location.locateCoreFile();
    if (!coreFile)
        return;
    const std::string sentence = "The project " + quoted(root) + " has metadata already: " + quoted(*coreFile);
    std::optional<std::u16string> type;
    try {
        type = location.getMetadataType();
    } catch (...) {
        std::throw_with_nested(CommandError(Status::failure, sentence + ", which cannot be read"));
    }
    throw CommandError(Status::failure, sentence + (type ? ", of type \"" + host::toUtf8(*type) + '"' : ""));
}

/// In any other folder a project could be made, but not found again.
/// @param origin where the name comes from, for the error sentence
void requireFolderIn(const std::vector<std::u16string>& allowed, const std::u16string& name, Status status,
                     const std::string& origin) {
    if (std::find(allowed.begin(), allowed.end(), name) != allowed.end())
        return;
    std::string choices;
    for (const std::u16string& choice : allowed)
        choices += (choices.empty() ? "" : ", ") + host::toUtf8(choice);
    throw CommandError(status, "Metadata cannot be kept in the folder \"" + host::toUtf8(name) + "\" that " + origin +
                                   " names; it can be in: " + choices);
}

std::shared_ptr<pm::MetadataManagerFactory> chooseStore(const std::optional<std::string>& name) {
    if (auto factory = name ? pm::getNamedFactory(host::fromUtf8(*name)) : pm::getDefaultFactory())
        return factory;
    if (name)
        throw CommandError(Status::usage, "There is no store \"" + *name + "\"; there are: " + listStoreNames());
    throw CommandError(Status::failure, "There is no default store; there are: " + listStoreNames());
}

Status init(const Arguments& arguments) {
    const host::Path root = host::Path::fromAccessName(arguments.root);
    requireRoot(root);
    requireNoMetadata(root);
    if (arguments.folder) {
        const std::u16string folder = host::fromUtf8(*arguments.folder);
        requireFolderIn(pm::getSelectableRoots(), folder, Status::usage, "--folder");
        overrideSetting("korvex.project.creation", "DefaultMetadataRoot", folder);
    } else {
        requireFolderIn(pm::getSupportedRoots(), pm::getRootFromSettings(), Status::failure,
                        "the setting DefaultMetadataRoot");
    }

    const auto factory = chooseStore(arguments.store);
    // A store writes nothing before its first change.
    factory->createManager(root)->setPaths({pm::MetadataPath()});
    print("Metadata of type \"" + escapeName(factory->getName()) + "\" created in " +
          escapeName(pm::ProjectMetadataLocation(root).getDirectory().text()) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    app.add_option("ROOT", arguments->root, "The project's root folder; without, the current folder");
    app.add_option("--store", arguments->store, "The kind of store; \"project-metadata stores\" lists them")
        ->type_name("NAME");
    app.add_option("--folder", arguments->folder, "The name of the metadata folder, relative to ROOT")
        ->type_name("NAME");
    return [arguments] { return init(*arguments); };
}

const Command command(Group::change, "init", "Create the metadata of a project", configure);

}  // namespace

}  // namespace cli
