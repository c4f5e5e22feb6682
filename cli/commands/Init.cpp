/// project-metadata init: creates the metadata of a project.

#include <exception>

#include "cli/Command.hpp"
#include "host/Interruption.hpp"
#include "operations/DryRun.hpp"
#include "operations/NewMetadata.hpp"
#include "operations/Project.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

struct Arguments {
    std::string root;
    std::optional<std::string> store;
    std::optional<std::string> folder;
    std::vector<std::string> options;
    std::shared_ptr<const bool> dryRun;
    std::shared_ptr<const bool> isJson;
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
        type = findType(*coreFile);
    } catch (...) {
        std::throw_with_nested(CommandError(Status::failure, sentence + ", which cannot be read"));
    }
    throw CommandError(Status::failure, sentence + (type ? ", of type \"" + host::toUtf8(*type) + '"' : ""));
}

Status init(const Arguments& arguments) {
    const host::Path root = host::Path::fromAccessName(arguments.root);
    requireNewRoot(root);
    requireNoMetadata(root);
    const auto chosen = chooseFolder(arguments.folder);
    const auto factory = chooseStore(arguments.store);
    // A store writes nothing before its first change, which makes the folders that are missing.
    const auto store = factory->createManager(root);
    setOptions(*store, arguments.options);
    if (*arguments.dryRun) {
        requireFeasible(root);
    } else {
        store->setPaths({pm::MetadataPath()});
        host::Interruption::ignore();
    }
    const host::Path folder = pm::ProjectMetadataLocation(root).getDirectory();
    if (*arguments.isJson) {
        printJson({{"folder", toJson(folder)}, {"type", toJson(factory->getName())}});
        return Status::done;
    }
    printNote("Metadata of type \"" + escapeName(factory->getName()) + '"' + (*arguments.dryRun ? " would be" : "") +
              " created in " + escapeName(folder.text()) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    const Operands operands(app,
                            {{"ROOT", "The project's root folder, made if it is not there; without, the current folder",
                              Positional::Kind::optional}},
                            0);
    addOption(app, "--store", arguments->store, "The kind of store; \"project-metadata stores\" lists them", "STORE");
    addOption(app, "--folder", arguments->folder, "The name of the metadata folder, relative to ROOT", "NAME");
    addStoreOptions(app, arguments->options);
    arguments->dryRun = addDryRun(app);
    arguments->isJson = addJson(app);
    return [operands, arguments] {
        arguments->root = operands.get()[0].value_or(".");
        return init(*arguments);
    };
}

const Command command(Group::change, "init", "Create the metadata of a project", configure);

}  // namespace

}  // namespace cli
