/// project-metadata export: all metadata of a project in one file.

#include <cstddef>
#include <exception>
#include <memory>
#include <string>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/CommandObserver.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Warnings.hpp"
#include "host/Interruption.hpp"
#include "operations/Export.hpp"
#include "operations/Project.hpp"

namespace cli {

namespace {

struct Flags {
    bool force = false;
    std::shared_ptr<const bool> dryRun;
};

Status exportTo(const host::Path& root, const host::Path& file, const Flags& flags) {
    const auto store = operations::openProject(root);
    const auto existing = flags.force ? operations::Existing::replace : operations::Existing::keep;
    operations::requireWritable(file, existing);
    CommandObserver observer;
    try {
        operations::exportMetadata(*store, file, existing, *flags.dryRun, observer);
    } catch (const host::InterruptedException&) {
        throw;
    } catch (...) {
        std::throw_with_nested(CommandError(
            Status::failure, "The metadata of " + quoted(root) + " cannot be exported to " + quoted(file)));
    }
    host::Interruption::ignore();
    printNote((*flags.dryRun ? "Would write " : "") + escapeName(file.text()) + '\n');
    flushOutput();
    const std::size_t damages = keepDamage(operations::findDamage(*store));
    if (damages == 0)
        return Status::done;
    reportError("The export lacks what is damaged in the metadata of " + quoted(root) + ": " +
                formatCount(damages, "file"));
    return Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"FILE", "The file to make; one that exists is left alone"}});
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "--force", flags->force, "Replace a file that exists");
    flags->dryRun = addDryRun(app);
    return [positionals, flags] {
        const auto [root, texts] = positionals.get();
        return exportTo(root, host::Path::fromAccessName(texts[0]), *flags);
    };
}

const Command command(Group::move, "export", "Write a project's metadata into one new file", configure);

}  // namespace

}  // namespace cli
