// As with a conversion, the new metadata is made in a scratch folder beside the place where it is to be. It gets the
// name that the damaged one is to have, and then both are exchanged: whenever the process dies, each of the two is
// there as a whole, and never in the scratch folder, which a repair removes.

#include "operations/Restore.hpp"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>

#include "host/Interruption.hpp"
#include "operations/DryRun.hpp"
#include "operations/Errors.hpp"
#include "operations/FolderVersion.hpp"
#include "operations/MetadataFolder.hpp"
#include "operations/NewMetadata.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "operations/Workshop.hpp"
#include "operations/XmlCheck.hpp"
#include "project/exception/ProjectException.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/Uuid.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FolderLock.hpp"

namespace operations {

namespace {

namespace fs = std::filesystem;
using Factory = std::shared_ptr<pm::MetadataManagerFactory>;

/// @throws MetadataReadFailure if this process may not read it
bool isDamagedCoreFile(const host::Path& coreFile) {
    try {
        if (!findType(coreFile))
            return true;
    } catch (const pm::MetadataReadFailure&) {
        if (access(coreFile.accessName().c_str(), R_OK) != 0)
            throw;
        return true;
    }
    return !checkXml(coreFile).empty();
}

/// Whether the file that `error` names is to blame for it. Of a core file that is sound, it is what it leads to.
bool isAboutDamage(const pm::MetadataReadFailure& error, const host::Path& coreFile) {
    const host::Path file(std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(0)));
    return file != coreFile && file != store_support::getLockFile(pm::getParentFolder(coreFile)) &&
           store_support::exists(file) && !isOutOfReach(file);
}

/// The cause of the exception in flight that a store has raised; null if there is none.
std::exception_ptr findReadFailure(const std::exception& error) {
    if (dynamic_cast<const pm::MetadataReadFailure*>(&error))
        return std::current_exception();
    try {
        std::rethrow_if_nested(error);
    } catch (const std::exception& cause) {
        return findReadFailure(cause);
    }
    return nullptr;
}

/// The kind of store that has files of its own in the metadata folder, where there is no core file; null if none has.
Factory findRemains(const host::Path& root) {
    for (Factory& factory : pm::getRegisteredFactories()) {
        try {
            const OwnFiles own = listOwnFiles(root, *factory->createManager(root));
            if (!std::includes(own.transient.begin(), own.transient.end(), own.all.begin(), own.all.end()))
                return std::move(factory);
        } catch (const project::exception::ProjectException&) {
            // It knows nothing of them.
        }
    }
    return nullptr;
}

Factory chooseKind(const host::Path& root, const RestoreRequest& request) {
    if (request.store)
        return chooseStore(request.store);
    const pm::ProjectMetadataLocation location(root);
    if (!location.hasCoreFile())
        return findRemains(root);
    const host::Path coreFile = location.getCoreFile();
    try {
        if (const auto type = findType(coreFile)) {
            if (Factory factory = pm::getNamedFactory(*type))
                return factory;
        }
    } catch (const pm::MetadataReadFailure&) {
        // Somebody may know it by its other files.
    }
    for (Factory& factory : pm::getRegisteredFactories()) {
        try {
            if (factory->canManage(root))
                return std::move(factory);
        } catch (const pm::MetadataReadFailure&) {
            // Not this one.
        }
    }
    throw OperationError(ErrorKind::failure, "The core file " + quoted(coreFile) +
                                                 " does not say any more what kind of store the project was in; "
                                                 "--store says in which it is to be; there are: " +
                                                 listStoreNames());
}

/// Where the damaged folder `folder` goes.
fs::path findNewName(const fs::path& folder) {
    fs::path name = folder.native() + ".damaged";
    for (int number = 2; fs::exists(fs::symlink_status(name)); ++number)
        name = folder.native() + ".damaged." + std::to_string(number);
    return name;
}

/// Copies what is certainly not the store's.
void keepForeignFiles(const host::Path& root, const fs::path& folder, const fs::path& target, Observer& observer) {
    OwnFiles own;
    try {
        if (pm::ProjectMetadataLocation(root).hasCoreFile())
            own = listOwnFiles(root, *openProject(root));
        else if (const Factory factory = findRemains(root))
            own = listOwnFiles(root, *factory->createManager(root));
    } catch (const std::exception&) {
        // What cannot be opened cannot tell.
    }
    if (own.all.empty()) {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
            if (entry.path().parent_path() != folder || !pm::getMarkedUuid(toPath(entry.path())))
                own.all.insert(entry.path().lexically_relative(folder));
        }
    }
    copyForeignFiles(folder, own, target, observer);
}

/// @throws OperationError unless the project with the root folder `root` holds just `content`
void requireContent(const host::Path& root, const Factory& factory, const PathTree& content, Observer& observer) {
    const auto progress = observer.start("Comparing");
    const auto made = factory->createManager(root);
    if (!findDamage(*made).empty() || !findChange(readPaths(*made, *progress), content).isEmpty())
        throw OperationError(ErrorKind::failure, "Nothing is replaced: the new metadata would not hold the same");
}

/// Gives `made` the place of `folder`, and that the name `aside`. If that fails, everything is as it was.
void exchange(const fs::path& made, const fs::path& folder, const fs::path& aside) {
    fs::rename(made, aside);
    try {
        if (exchangeFolders(aside, folder))
            return;
        // The file system cannot do that in one step.
        fs::rename(aside, made);
        fs::rename(folder, aside);
    } catch (...) {
        if (fs::exists(aside))
            fs::rename(aside, made);
        throw;
    }
    try {
        fs::rename(made, folder);
    } catch (...) {
        fs::rename(aside, folder);
        throw;
    }
}

}  // namespace

bool isDamaged(const host::Path& root, Observer& observer) {
    const pm::ProjectMetadataLocation location(root);
    if (!location.hasCoreFile())
        return findRemains(root) != nullptr;
    const host::Path coreFile = location.getCoreFile();
    if (isDamagedCoreFile(coreFile))
        return true;
    const auto progress = observer.start("Reading");
    try {
        const auto store = openProject(root);
        if (dynamic_cast<const pm::DamageReporter*>(store.get())) {
            const std::vector<pm::MetadataDamage> damages = findDamage(*store);
            for (const pm::MetadataDamage& damage : damages) {
                if (isOutOfReach(damage.file))
                    pm::raise<pm::MetadataReadFailure>(damage.file.text(), damage.problem);
            }
            return !damages.empty();
        }
        readPaths(*store, *progress);
        return false;
    } catch (const std::exception& error) {
        const std::exception_ptr cause = findReadFailure(error);
        if (!cause)
            throw;
        try {
            std::rethrow_exception(cause);
        } catch (const pm::MetadataReadFailure& failure) {
            if (isAboutDamage(failure, coreFile))
                return true;
        }
        throw;
    }
}

host::Path restoreProject(const host::Path& root, const PathTree& content, const RestoreRequest& request,
                          Observer& observer) {
    const fs::path folder = fs::canonical(pm::ProjectMetadataLocation(root).getDirectory().accessName());
    const fs::path aside = findNewName(folder);
    const Factory factory = chooseKind(root, request);
    if (request.isDryRun) {
        requireFeasibleFile(toPath(folder));
        requireFeasibleFile(toPath(aside));
        return toPath(aside);
    }
    Workshop workshop(toPath(folder.parent_path()), observer);
    workshop.copy(content, *factory, "new", request.options);
    const fs::path made = workshop.metadataFolder("new");
    keepForeignFiles(root, folder, made, observer);
    requireContent(toPath(workshop.projectFolder("new")), factory, content, observer);
    const auto lock = store_support::FolderLock::withoutCleaningUp(toPath(folder));
    if (const auto file = findLockedFile(folder)) {
        throw OperationError(ErrorKind::failure,
                             "Another program has " + quoted(toPath(folder / *file)) + " open, and may be changing it");
    }
    if (!isDamaged(root, observer))
        throw OperationError(ErrorKind::failure,
                             "Another program has mended the metadata of " + quoted(root) + " meanwhile");
    store_support::flushFileSystem(toPath(folder.parent_path()));
    host::Interruption::throwIfRequested();
    host::Interruption::ignore();
    exchange(made, folder, aside);
    workshop.giveAway();
    store_support::flushFileSystem(toPath(folder.parent_path()));
    return toPath(aside);
}

}  // namespace operations
