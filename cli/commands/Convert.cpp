/// project-metadata convert: a project's metadata in another kind of store, or in another folder.
///
/// The new metadata is made in a scratch folder beside the place where it is to be, compared with the old, and
/// exchanged with it. So the project has all of its metadata at any moment, whatever happens.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>

#include "cli/Command.hpp"
#include "cli/DryRun.hpp"
#include "cli/Errors.hpp"
#include "cli/MetadataLock.hpp"
#include "cli/NewMetadata.hpp"
#include "cli/Output.hpp"
#include "cli/PathText.hpp"
#include "cli/Positionals.hpp"
#include "cli/Progress.hpp"
#include "cli/Project.hpp"
#include "cli/SafeText.hpp"
#include "cli/SettingsOverride.hpp"
#include "cli/StoreChange.hpp"
#include "host/FileSystem.hpp"
#include "host/Interruption.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using Factory = std::shared_ptr<pm::MetadataManagerFactory>;

struct Flags {
    std::string store;
    std::optional<std::string> folder;
    bool keep = false;
    std::shared_ptr<const bool> dryRun;
};

host::Path toPath(const fs::path& path) {
    return host::Path::fromAccessName(path.native());
}

/// What is to be converted, and where it goes.
struct Plan {
    Factory before;
    Factory after;
    fs::path oldFolder;    // where it really is, if its name is a symbolic link
    fs::path newFolder;    // the same, unless --folder names another
    fs::path asideFolder;  // where the old folder comes to
};

[[noreturn]] void refuse(const host::Path& root, const std::string& reason) {
    throw CommandError(Status::failure, "The metadata of " + quoted(root) + " cannot be converted: " + reason);
}

/// @throws CommandError if metadata in the folder `name` would not be found, because of what is in a folder before it
void requireFound(const host::Path& root, const host::Path& oldFolder, const host::Path& newFolder) {
    for (const std::u16string& name : pm::getSupportedRoots()) {
        const host::Path folder = root / name;
        if (folder == newFolder)
            break;
        if (folder != oldFolder && host::FileSystem::exists(folder / pm::coreFileName()))
            refuse(root,
                   quoted(folder) + " has metadata too, which would be found before that in " + quoted(newFolder));
    }
    std::error_code ignored;
    if (newFolder != oldFolder && fs::exists(newFolder.accessName()) && !fs::is_empty(newFolder.accessName(), ignored))
        refuse(root, "there is something in " + quoted(newFolder) + " already");
}

Plan makePlan(const host::Path& root, const Flags& flags) {
    Plan plan;
    const host::Path coreFile = requireCoreFile(root);
    const std::u16string type = pm::ProjectMetadataLocation(root).getMetadataType().value_or(u"");
    plan.before = pm::getNamedFactory(type);
    plan.after = chooseStore(flags.store);
    if (plan.after->getName() == type) {
        throw CommandError(Status::usage, "The metadata of " + quoted(root) + " is in a store of the kind \"" +
                                              flags.store + "\" already");
    }
    const host::Path oldFolder = coreFile.parentPath();
    const host::Path newFolder = flags.folder ? root / host::fromUtf8(*flags.folder) : oldFolder;
    if (flags.folder)
        chooseFolder(flags.folder);
    requireFound(root, oldFolder, newFolder);
    plan.oldFolder = fs::canonical(oldFolder.accessName());
    plan.newFolder = newFolder == oldFolder ? plan.oldFolder : fs::weakly_canonical(newFolder.accessName());
    plan.asideFolder = plan.oldFolder;
    plan.asideFolder += '.' + host::toUtf8(type);
    if (fs::exists(fs::symlink_status(plan.asideFolder)))
        refuse(root, quoted(toPath(plan.asideFolder)) + " is in the way, the name that the old folder is to get");
    return plan;
}

/// A folder in which projects can be made that belong to nobody.
class Workshop {
public:
    explicit Workshop(const host::Path& parent) : guard_(parent.text(), u".project-metadata-", u"") {
        overrideSetting("korvex.project.creation", "DefaultMetadataRoot", pm::getSelectableRoots().front());
    }

    fs::path folder() const { return host::Path(guard_.getDirectoryName()).accessName(); }

    static fs::path metadataFolder(const fs::path& root) {
        return root / host::Path(pm::getSelectableRoots().front()).accessName();
    }

    /// Makes the project `name` with all that `source` holds. @return its metadata folder
    fs::path copy(const pm::MetadataManager& source, const Factory& factory, const std::string& name) const {
        const fs::path root = folder() / name;
        fs::create_directory(root);
        const auto store = factory->createManager(toPath(root));
        Progress progress("Copying");
        StoreChange change = findMirrorChange(source, *store, progress);
        if (!change.paths)
            change.paths.emplace(1);
        applyChange(*store, change, Interruptible::always);
        return metadataFolder(root);
    }

private:
    host::TempDirGuard guard_;
};

/// Copies to `target` what lies in the metadata folder `folder` and is not the store's: what is not in `pure`, a folder
/// that the same kind of store has made with the same content.
void copyForeignFiles(const fs::path& folder, const fs::path& pure, const fs::path& target) {
    Progress progress("Copying");
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        progress.advance();
        const fs::path name = entry.path().lexically_relative(folder);
        if (fs::exists(fs::symlink_status(pure / name)))
            continue;
        if (entry.is_directory() && !entry.is_symlink()) {
            fs::create_directories(target / name);
            continue;
        }
        fs::create_directories((target / name).parent_path());
        fs::copy(entry.path(), target / name, fs::copy_options::copy_symlinks);
        if (entry.is_regular_file())
            fs::last_write_time(target / name, entry.last_write_time());
    }
    fs::permissions(target, fs::status(folder).permissions());
}

/// @throws CommandError naming the first path that differs, or a file that the new store takes for its own
void requireEqual(const pm::MetadataManager& before, const host::Path& root, const Factory& factory) {
    Progress progress("Comparing");
    const auto after = factory->createManager(root);
    if (const auto damages = findDamage(*after); !damages.empty()) {
        throw CommandError(Status::failure, "The file " + quoted(damages.front().file.fileName()) +
                                                " in the metadata folder would be damaged in the new store: " +
                                                host::toUtf8(damages.front().problem));
    }
    const StoreChange change = findMirrorChange(before, *after, progress);
    if (change.isEmpty())
        return;
    for (const auto* paths : {&change.updated, &change.added, &change.removed}) {
        if (!paths->empty())
            throw CommandError(Status::failure,
                               "Not converted: \"" + formatPath(paths->front()) + "\" would not stay as it is");
    }
    throw CommandError(Status::failure, "Not converted: the order of the paths would not stay as it is");
}

/// Waits until the names in the folder of `path`, and all that has been written to its file system, are on disk.
void flush(const fs::path& path) {
    const int folder = open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isFlushed = folder >= 0 && syncfs(folder) == 0;
    const int error = errno;
    if (folder >= 0)
        close(folder);
    if (!isFlushed)
        throw fs::filesystem_error("cannot flush", path, std::error_code(error, std::generic_category()));
}

/// @return whether the file system can do that and has done it
bool exchange(const fs::path& a, const fs::path& b) {
    if (renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0)
        return true;
    if (errno == EINVAL || errno == ENOSYS)
        return false;
    throw fs::filesystem_error("cannot exchange", a, b, std::error_code(errno, std::generic_category()));
}

/// Puts the folder `made` in its place and the old one aside. If that fails, everything is as it was.
void swapFolders(const Plan& plan, const fs::path& made) {
    const bool isSamePlace = plan.newFolder == plan.oldFolder;
    if (isSamePlace && exchange(made, plan.oldFolder)) {
        try {
            fs::rename(made, plan.asideFolder);
        } catch (...) {
            exchange(made, plan.oldFolder);
            throw;
        }
        return;
    }
    // In two steps. If there are two places, the new folder comes first, so that there is metadata at any moment.
    std::pair first(plan.oldFolder, plan.asideFolder);
    std::pair second(made, plan.newFolder);
    if (!isSamePlace)
        std::swap(first, second);
    fs::rename(first.first, first.second);
    try {
        fs::rename(second.first, second.second);
    } catch (...) {
        fs::rename(first.second, first.first);
        throw;
    }
}

/// @return how many paths there are
std::size_t convertFolder(const host::Path& root, const Plan& plan, const Flags& flags) {
    const auto source = openProject(root);
    if (const auto damages = findDamage(*source); !damages.empty()) {
        refuse(root, quoted(damages.front().file) + " is damaged: " + host::toUtf8(damages.front().problem) +
                         "; \"project-metadata check\" finds all damage");
    }
    const fs::path parent = plan.newFolder.parent_path();
    if (!*flags.dryRun)
        fs::create_directories(parent);
    const Workshop workshop(*flags.dryRun ? host::FileSystem::temp_directory_name() : toPath(parent));
    const fs::path made = workshop.copy(*source, plan.after, "new");
    copyForeignFiles(plan.oldFolder, workshop.copy(*source, plan.before, "pure"), made);
    // Nobody changes the old metadata from here until it is put aside.
    std::optional<MetadataLock> lock;
    if (!*flags.dryRun)
        lock.emplace(toPath(plan.oldFolder));
    requireEqual(*source, toPath(workshop.folder() / "new"), plan.after);
    Progress progress("Counting");
    const std::size_t count = listPaths(*source, {}, progress).size() - 1;
    if (*flags.dryRun)
        return count;

    flush(plan.newFolder);
    host::Interruption::throwIfRequested();
    host::Interruption::ignore();
    lock.reset();
    swapFolders(plan, made);
    flush(plan.newFolder);
    return count;
}

void removeOldFolder(const host::Path& root, const Plan& plan) {
    const Progress progress("Removing");
    try {
        pm::deleteFiles({toPath(plan.asideFolder)});
    } catch (...) {
        std::throw_with_nested(
            CommandError(Status::failure,
                         "The metadata of " + quoted(root) + " is converted, but the old folder cannot be removed"));
    }
}

Status convert(const host::Path& root, const Flags& flags) {
    const Plan plan = makePlan(root, flags);
    std::size_t count = 0;
    try {
        count = convertFolder(root, plan, flags);
    } catch (const host::InterruptedException&) {
        throw;
    } catch (const CommandError&) {
        throw;
    } catch (...) {
        std::throw_with_nested(
            CommandError(Status::failure, "The metadata of " + quoted(root) + " cannot be converted"));
    }
    if (!flags.keep && !*flags.dryRun)
        removeOldFolder(root, plan);
    printNote((*flags.dryRun ? "Would convert " : "Converted ") + formatCount(count, "path") + " from \"" +
              escapeName(plan.before->getName()) + "\" to \"" + escapeName(plan.after->getName()) + "\", in " +
              escapeName(toPath(plan.newFolder).text()) + '\n');
    if (flags.keep)
        printNote("The old folder " + std::string(*flags.dryRun ? "would be" : "is") + " kept as " +
                  escapeName(toPath(plan.asideFolder).text()) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app);
    const auto flags = std::make_shared<Flags>();
    app.add_option("--to", flags->store, "The kind of store; \"project-metadata stores\" lists them")
        ->type_name("STORE")
        ->required();
    app.add_option("--folder", flags->folder, "The name of the new metadata folder, relative to ROOT")
        ->type_name("NAME");
    app.add_flag("--keep", flags->keep, "Keep the old folder, with the name of its kind of store appended");
    flags->dryRun = addDryRun(app);
    return [positionals, flags] { return convert(positionals.get().root, *flags); };
}

const Command command(Group::move, "convert", "Move a project's metadata into another kind of store", configure);

}  // namespace

}  // namespace cli
