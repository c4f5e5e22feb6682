/// project-metadata export: all metadata of a project in one file.

#include <cstddef>
#include <exception>
#include <string>

#include "cli/Command.hpp"
#include "cli/Errors.hpp"
#include "cli/Output.hpp"
#include "cli/Positionals.hpp"
#include "cli/Progress.hpp"
#include "cli/Project.hpp"
#include "cli/SafeText.hpp"
#include "host/FileSystem.hpp"
#include "project/metadata/SingleFileExport.hpp"

namespace cli {

namespace {

Status exportTo(const host::Path& root, const host::Path& file) {
    // Exporting would find both of these out, the second one only after the work, but could not say it as well.
    const auto store = openProject(root);
    if (host::FileSystem::exists(file))
        throw CommandError(Status::failure, "The file " + quoted(file) + " exists already and is left as it is");
    try {
        const Progress progress("Exporting");
        project::metadata::writeMetadataToSingleFile(root, file);
    } catch (...) {
        // The cause may name a file in the scratch folder of the export, which tells nobody what failed.
        std::throw_with_nested(CommandError(
            Status::failure, "The metadata of " + quoted(root) + " cannot be exported to " + quoted(file)));
    }
    print(escapeName(file.text()) + '\n');
    flushOutput();
    const std::size_t damages = findDamage(*store).size();
    if (damages == 0)
        return Status::done;
    reportError("The export lacks what is damaged in the metadata of " + quoted(root) + ": " + std::to_string(damages) +
                (damages == 1 ? " file" : " files"));
    return Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"FILE", "The file to make; one that exists is left alone"}});
    return [positionals] {
        const auto [root, texts] = positionals.get();
        return exportTo(root, host::Path::fromAccessName(texts[0]));
    };
}

const Command command(Group::move, "export", "Write a project's metadata into one new file", configure);

}  // namespace

}  // namespace cli
