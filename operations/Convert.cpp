// The new metadata is made in a scratch folder beside the place where it is to be, compared with the old, and exchanged
// with it. So the project has all of its metadata at any moment, whatever happens.

#include "operations/Convert.hpp"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "host/FileSystem.hpp"
#include "host/Interruption.hpp"
#include "operations/DryRun.hpp"
#include "operations/FolderVersion.hpp"
#include "operations/MetadataFolder.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/NewMetadata.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "operations/Workshop.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FolderLock.hpp"

namespace operations {

namespace {

namespace fs = std::filesystem;
using Factory = std::shared_ptr<pm::MetadataManagerFactory>;

/// What is to be converted, and where it goes.
struct Plan {
    Factory before;
    Factory after;
    fs::path oldFolder;    // where it really is, if its name is a symbolic link
    fs::path newFolder;    // the same, unless another one is asked for
    fs::path asideFolder;  // where the old folder comes to
};

[[noreturn]] void refuse(const host::Path& root, const std::string& reason) {
    throw OperationError(ErrorKind::failure, "The metadata of " + quoted(root) + " cannot be converted: " + reason);
}

/// @throws OperationError if metadata in the folder `name` would not be found, because of what is in a folder before it
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

Plan makePlan(const host::Path& root, const ConversionRequest& request) {
    Plan plan;
    const host::Path coreFile = requireCoreFile(root);
    const std::u16string type = findType(coreFile).value_or(u"");
    plan.before = pm::getNamedFactory(type);
    plan.after = chooseStore(request.store);
    if (plan.after->getName() == type) {
        throw OperationError(ErrorKind::usage, "The metadata of " + quoted(root) + " is in a store of the kind \"" +
                                                   request.store + "\" already");
    }
    const host::Path oldFolder = coreFile.parentPath();
    const host::Path newFolder = request.folder ? root / host::fromUtf8(*request.folder) : oldFolder;
    if (request.folder)
        requireFolder(request.folder);
    requireFound(root, oldFolder, newFolder);
    plan.oldFolder = fs::canonical(oldFolder.accessName());
    plan.newFolder = newFolder == oldFolder ? plan.oldFolder : fs::weakly_canonical(newFolder.accessName());
    plan.asideFolder = plan.oldFolder;
    plan.asideFolder += '.' + host::toUtf8(type);
    if (fs::exists(fs::symlink_status(plan.asideFolder)))
        refuse(root, quoted(toPath(plan.asideFolder)) + " is in the way, the name that the old folder is to get");
    return plan;
}

/// All files below `folder`, by their names relative to it.
std::set<std::string> listFiles(const fs::path& folder) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder))
        names.insert(entry.path().lexically_relative(folder));
    return names;
}

/// @throws OperationError naming the first path that differs, or a file that the new store takes for its own
void requireEqual(const PathTree& before, const host::Path& root, const Factory& factory, Observer& observer) {
    const auto progress = observer.start("Comparing");
    const auto after = factory->createManager(root);
    if (const auto damages = findDamage(*after); !damages.empty()) {
        throw OperationError(ErrorKind::failure, "The file " + quoted(damages.front().file.fileName()) +
                                                     " in the metadata folder would be damaged in the new store: " +
                                                     host::toUtf8(damages.front().problem));
    }
    const StoreChange change = findChange(readPaths(*after, *progress), before);
    if (change.isEmpty())
        return;
    for (const auto* paths : {&change.updated, &change.added, &change.removed}) {
        if (!paths->empty())
            throw PathNotConverted(paths->front());
    }
    throw OperationError(ErrorKind::failure, "Not converted: the order of the paths would not stay as it is");
}

/// Puts the folder `made` in its place and the old one aside. If that fails, everything is as it was.
void swapFolders(const Plan& plan, const fs::path& made) {
    const bool isSamePlace = plan.newFolder == plan.oldFolder;
    if (isSamePlace && exchangeFolders(made, plan.oldFolder)) {
        try {
            fs::rename(made, plan.asideFolder);
        } catch (...) {
            exchangeFolders(made, plan.oldFolder);
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

/// @throws OperationError if anything in the old folder, which may have another name now, is not as it was `before`, or
///         may still change
void requireUnchanged(const FolderVersion& before, const fs::path& folder, const std::string& outcome) {
    if (const auto file = before.findDifference(folder)) {
        throw OperationError(ErrorKind::foundProblems, outcome + ": another program has changed " +
                                                           quoted(toPath(folder / *file)) + " meanwhile");
    }
    if (const auto file = findLockedFile(folder)) {
        throw OperationError(
            ErrorKind::foundProblems,
            outcome + ": another program has " + quoted(toPath(folder / *file)) + " open, and may be changing it");
    }
}

/// Opens the project, which must not be damaged: what the files say besides would go with them.
std::unique_ptr<pm::MetadataManager> openSource(const host::Path& root, Observer& observer) {
    // A store that was killed may have left something to put away, which happens when the next one closes.
    openProject(root).reset();
    auto source = openProject(root);
    const auto progress = observer.start("Reading");
    for (const pm::MetadataDamage& damage : findDamage(*source)) {
        if (damage.readsAsBranch)
            continue;
        refuse(root, quoted(damage.file) + " is damaged: " + host::toUtf8(damage.problem) +
                         "; \"project-metadata check\" finds all damage");
    }
    return source;
}

/// What the old store has elsewhere than in the folder, if it has anything there.
class RemoteSource {
public:
    RemoteSource() = default;

    /// Looks at it as it is now.
    explicit RemoteSource(pm::MetadataManager& store) : content_(dynamic_cast<pm::RemoteContent*>(&store)) {
        if (content_)
            version_ = content_->getContentVersion();
    }

    /// Whether it is as it was.
    bool isUnchanged() const { return !content_ || content_->getContentVersion() == version_; }

    /// Keeps the old store, which alone can remove it.
    void take(std::unique_ptr<pm::MetadataManager>& store) {
        if (content_)
            store_ = std::move(store);
    }

    /// @return false if it is kept, since it has changed
    bool remove() { return !content_ || content_->removeContent(version_); }

private:
    pm::RemoteContent* content_ = nullptr;
    std::int64_t version_ = 0;
    std::unique_ptr<pm::MetadataManager> store_;
};

/// What is in the old folder now, where it has been put aside.
struct Converted {
    std::size_t pathCount;
    FolderVersion before;
    RemoteSource remote;
};

Converted convertFolder(const host::Path& root, const Plan& plan, const ConversionRequest& request,
                        Observer& observer) {
    auto source = openSource(root, observer);
    OwnFiles own = listOwnFiles(root, *source);
    FolderVersion before(plan.oldFolder, own.transient);
    RemoteSource remote(*source);
    const PathTree content = readPaths(*source, *observer.start("Reading"));
    const fs::path parent = plan.newFolder.parent_path();
    if (request.isDryRun) {
        requireFeasibleFile(toPath(plan.newFolder));
        requireFeasibleFile(toPath(plan.asideFolder));
    } else {
        store_support::makeFolderOfOwner(toPath(parent));
    }
    Workshop workshop(request.isDryRun ? host::FileSystem::temp_directory_name() : toPath(parent), observer);
    const std::size_t pathCount = workshop.copy(content, *plan.after, "new", request.options);
    if (own.all.empty()) {
        // What the same kind of store does not make for the same content is not its own.
        workshop.copy(content, *plan.before, "pure");
        own.all = listFiles(workshop.metadataFolder("pure"));
    }
    copyForeignFiles(plan.oldFolder, own, workshop.metadataFolder("new"), observer);
    // Nobody with a store that heeds the lock changes the old metadata from here on; it goes with the folder.
    std::optional<store_support::FolderLock> lock;
    if (!request.isDryRun)
        lock.emplace(toPath(plan.oldFolder));
    requireEqual(content, toPath(workshop.projectFolder("new")), plan.after, observer);
    if (!remote.isUnchanged())
        refuse(root, "another program has changed the metadata meanwhile");
    remote.take(source);
    source.reset();
    if (const auto file = before.findDifference(plan.oldFolder))
        refuse(root, "another program has changed " + quoted(toPath(plan.oldFolder / *file)) + " meanwhile");
    if (request.isDryRun)
        return {pathCount, std::move(before), {}};

    {
        const auto progress = observer.start("Flushing");
        store_support::flushFileSystem(toPath(plan.newFolder.parent_path()));
    }
    host::Interruption::throwIfRequested();
    host::Interruption::ignore();
    swapFolders(plan, workshop.metadataFolder("new"));
    workshop.giveAway();
    store_support::flushFileSystem(toPath(plan.newFolder.parent_path()));
    return {pathCount, std::move(before), std::move(remote)};
}

/// Unless it holds what the new metadata lacks: there are programs that heed no lock, and a database has its own.
void removeOldFolder(const host::Path& root, const Plan& plan, const ConversionRequest& request, Converted& converted,
                     Observer& observer) {
    const auto progress = observer.start("Removing");
    const std::string outcome = "The metadata of " + quoted(root) + " is converted, but the old folder ";
    const std::string isKept = outcome + "is kept as " + quoted(toPath(plan.asideFolder));
    requireUnchanged(converted.before, plan.asideFolder, isKept);
    if (request.keep)
        return;
    if (!converted.remote.remove()) {
        throw OperationError(ErrorKind::foundProblems,
                             isKept + ": another program has changed the metadata that it leads to meanwhile");
    }
    try {
        pm::deleteFiles({toPath(plan.asideFolder)});
    } catch (...) {
        std::throw_with_nested(OperationError(ErrorKind::failure, outcome + "cannot be removed"));
    }
}

}  // namespace

Conversion convertProject(const host::Path& root, const ConversionRequest& request, Observer& observer) {
    const Plan plan = makePlan(root, request);
    std::optional<Converted> converted;
    try {
        converted = convertFolder(root, plan, request, observer);
    } catch (const host::InterruptedException&) {
        throw;
    } catch (const OperationError&) {
        throw;
    } catch (...) {
        std::throw_with_nested(
            OperationError(ErrorKind::failure, "The metadata of " + quoted(root) + " cannot be converted"));
    }
    if (!request.isDryRun)
        removeOldFolder(root, plan, request, *converted, observer);
    return {plan.before->getName(), plan.after->getName(), converted->pathCount, toPath(plan.newFolder),
            toPath(plan.asideFolder)};
}

}  // namespace operations
