/// project-metadata export: all metadata of a project in one file.

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <system_error>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/CommandObserver.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Warnings.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/Interruption.hpp"
#include "host/TempDirGuard.hpp"
#include "operations/Project.hpp"
#include "operations/SingleFile.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/SingleFileExport.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

struct Flags {
    bool force = false;
    std::shared_ptr<const bool> dryRun;
};

/// Copies `from` to `to`; what `to` names is replaced in one step if `force`, otherwise left alone with an error.
void placeFile(const host::Path& from, const host::Path& to, bool force) {
    host::Interruption::throwIfRequested();
    if (!force) {
        host::FileSystem::copy_file(from, to, host::CopyOption::none);
        return;
    }
    const host::TempDirGuard beside(host::FileUtils::makeAbsolute(to).parentPath().text(), u".project-metadata-", u"");
    const host::Path copy = host::Path(beside.getDirectoryName()) / u"exported";
    host::FileSystem::copy_file(from, copy, host::CopyOption::none);
    if (std::rename(copy.accessName().c_str(), to.accessName().c_str()) != 0)
        throw host::FileSystemException(to, std::error_code(errno, std::generic_category()));
}

/// Writes everything that `store`, the one of `root`, holds to `file`, unless this is not to be done.
void writeFile(const host::Path& root, const pm::MetadataManager& store, const host::Path& file, const Flags& flags) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"", u"");
    const host::Path written = host::Path(scratch.getDirectoryName()) / u"exported";
    CommandObserver observer;
    Progress progress("Exporting");
    pm::writeMetadataToSingleFile(root, written);
    // What the file lacks: nodes of paths that have one text, and the root's.
    const operations::SingleFile copy(written, observer);
    operations::applyChange(copy.store(), operations::findMirrorChange(store, copy.store(), progress),
                            operations::Interruptible::always);
    if (!*flags.dryRun)
        placeFile(copy.copy(), file, flags.force);
}

Status exportTo(const host::Path& root, const host::Path& file, const Flags& flags) {
    // Exporting would find both of these out, the second one only after the work, but could not say it as well.
    const auto store = operations::openProject(root);
    if (operations::leadsToFolder(file.accessName()))
        throw CommandError(Status::failure, quoted(file) + " is a folder, so the export cannot take its place");
    if (!flags.force && host::FileSystem::exists(file)) {
        throw CommandError(Status::failure,
                           "The file " + quoted(file) + " exists already and is left as it is; --force replaces it");
    }
    try {
        writeFile(root, *store, file, flags);
    } catch (const host::InterruptedException&) {
        throw;
    } catch (...) {
        // The cause may name a file in the scratch folder of the export, which tells nobody what failed.
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
