#include "operations/Project.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>

#include "operations/Errors.hpp"
#include "operations/TreeWalk.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/Disk.hpp"
#include "store_support/XmlFile.hpp"

namespace operations {

bool leadsToFolder(const std::string& name) {
    struct stat status {};
    return stat(name.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isFile(const std::string& name) {
    struct stat status {};
    return stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::optional<host::Path> findProject(host::Path folder) {
    while (!pm::ProjectMetadataLocation(folder).hasCoreFile()) {
        if (folder == folder.parentPath())
            return std::nullopt;
        folder = folder.parentPath();
    }
    return folder;
}

void requireRoot(const host::Path& root) {
    struct stat status {};
    if (stat(root.accessName().c_str(), &status) != 0) {
        const std::string reason = std::generic_category().message(errno);
        throw OperationError(ErrorKind::notAProject,
                             "The project folder " + quoted(root) + " cannot be used: " + reason);
    }
    if (!S_ISDIR(status.st_mode))
        throw OperationError(ErrorKind::notAProject, quoted(root) + " is no folder, so it cannot be a project");
}

void requireNewRoot(const host::Path& root) {
    struct stat status {};
    if (root.empty() || lstat(root.accessName().c_str(), &status) == 0 || errno != ENOENT)
        requireRoot(root);
}

host::Path requireCoreFile(const host::Path& root) {
    requireRoot(root);
    const std::optional<host::Path> coreFile = pm::ProjectMetadataLocation(root).locateCoreFile();
    if (!coreFile) {
        throw OperationError(
            ErrorKind::notAProject,
            "The folder " + quoted(root) + " holds no project metadata; \"project-metadata init\" creates it");
    }
    return *coreFile;
}

std::unique_ptr<pm::MetadataManager> openProject(const host::Path& root) {
    requireRoot(root);
    // First of all: a store may have to complete a change that was interrupted before there is a core file.
    try {
        if (auto store = pm::getMetadataManagerFor(root))
            return store;
    } catch (const pm::MetadataReadFailure&) {
        std::throw_with_nested(
            OperationError(ErrorKind::failure, "The metadata of " + quoted(root) + " cannot be opened"));
    }
    const host::Path coreFile = requireCoreFile(root);
    const std::optional<std::u16string> type = findType(coreFile);
    if (!type)
        throw OperationError(ErrorKind::failure, "The core file " + quoted(coreFile) + " names no type of metadata");
    throw OperationError(ErrorKind::failure, "There is no store for metadata of type \"" + host::toUtf8(*type) +
                                                 "\", which " + quoted(coreFile) +
                                                 " names; there are: " + listStoreNames());
}

std::unique_ptr<pm::MetadataManager> openIdleProject(const host::Path& root) {
    requireRoot(root);
    const bool isIdle = !store_support::isInterrupted(pm::ProjectMetadataLocation(root).getDirectory());
    return isIdle ? openProject(root) : nullptr;
}

std::optional<std::u16string> findType(const host::Path& file) {
    const std::u16string type = store_support::readMetadataType(file);
    return type.empty() ? std::nullopt : std::optional(type);
}

std::vector<pm::MetadataDamage> findDamage(const pm::MetadataManager& store, const pm::MetadataPath& top) {
    const auto* const reporter = dynamic_cast<const pm::DamageReporter*>(&store);
    auto damages = reporter ? reporter->findDamage() : std::vector<pm::MetadataDamage>();
    const auto isElsewhere = [&](const auto& damage) { return damage.path && !isAtOrBelow(*damage.path, top); };
    damages.erase(std::remove_if(damages.begin(), damages.end(), isElsewhere), damages.end());
    return damages;
}

bool isOutOfReach(const host::Path& file) {
    try {
        const auto status = store_support::findStatus(file);
        if (status && S_ISDIR(status->st_mode))
            return access(file.accessName().c_str(), R_OK | X_OK) != 0;
        if (status)
            store_support::readXmlFile(file, *status);
        return false;
    } catch (const pm::MetadataReadFailure&) {
        return true;
    }
}

std::string listStoreNames() {
    std::string names;
    for (const auto& factory : pm::getRegisteredFactories()) {
        if (!factory->isHidden())
            names += (names.empty() ? "" : ", ") + host::toUtf8(factory->getName());
    }
    return names.empty() ? "none" : names;
}

}  // namespace operations
