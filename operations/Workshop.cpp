#include "operations/Workshop.hpp"

#include <algorithm>
#include <iterator>
#include <set>
#include <system_error>

#include "host/FileSystem.hpp"
#include "operations/MetadataFolder.hpp"
#include "operations/NewMetadata.hpp"
#include "operations/SettingsOverride.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/Disk.hpp"

namespace operations {

namespace fs = std::filesystem;

namespace {

const std::u16string prefix = u".project-metadata-";

/// Whether `folder` was in use, and nothing in it is of anybody else.
bool holdsProjectsOnly(const fs::path& folder) {
    const fs::path lock = store_support::getLockFile(toPath(folder)).accessName();
    std::error_code error;
    const fs::directory_iterator entries(folder, error);
    return fs::exists(lock) && !error &&
           std::all_of(begin(entries), end(entries), [&](const fs::directory_entry& entry) {
               return entry.path() == lock || entry.path().filename() == "new" || entry.path().filename() == "pure";
           });
}

}  // namespace

Workshop::Workshop(const host::Path& parent, Observer& observer)
    : observer_(observer), guard_(parent.text(), prefix, u""), lock_(host::Path(guard_.getDirectoryName())) {
    store_support::giveToOwnerOfFolder(host::Path(guard_.getDirectoryName()));
    observer.useScratchFolder(host::Path(guard_.getDirectoryName()));
}

fs::path Workshop::projectFolder(const std::string& name) const {
    return fs::path(host::Path(guard_.getDirectoryName()).accessName()) / name;
}

fs::path Workshop::metadataFolder(const std::string& name) const {
    return projectFolder(name) / host::Path(pm::getSelectableRoots().front()).accessName();
}

Workshop::~Workshop() {
    for (const auto& store : remote_) {
        try {
            auto& content = dynamic_cast<pm::RemoteContent&>(*store);
            content.removeContent(content.getContentVersion());
        } catch (const std::exception&) {
            // It stays there, and belongs to nobody.
        }
    }
}

std::size_t Workshop::copy(const PathTree& content, pm::MetadataManagerFactory& factory, const std::string& name,
                           const std::vector<std::string>& options) {
    fs::create_directory(projectFolder(name));
    store_support::giveToOwnerOfFolder(toPath(projectFolder(name)));
    const SettingsOverride usual("korvex.project.creation", "DefaultMetadataRoot", pm::getSelectableRoots().front());
    auto made = factory.createManager(toPath(projectFolder(name)));
    pm::MetadataManager* const store = made.get();
    setOptions(*store, options);
    if (dynamic_cast<pm::RemoteContent*>(store))
        remote_.push_back(std::move(made));
    const auto progress = observer_.start("Copying");
    StoreChange change = findChange({}, content);
    if (!change.paths)
        change.paths.emplace(1);
    applyChange(*store, change, Interruptible::always);
    return change.added.size();
}

std::vector<host::Path> Workshop::findLeftovers(const host::Path& root) {
    std::vector<host::Path> folders{pm::ProjectMetadataLocation(root).getDirectory()};
    for (const std::u16string& name : pm::getSupportedRoots())
        folders.push_back(root / name);
    std::error_code error;
    std::set<fs::path> parents;  // where they really are, if there are symbolic links
    for (const host::Path& folder : folders)
        parents.insert(fs::weakly_canonical(fs::absolute(folder.accessName()), error).parent_path());

    std::set<fs::path> leftovers;
    const std::string start = host::Path(prefix).accessName();
    for (const fs::path& parent : parents) {
        for (const auto& entry : fs::directory_iterator(parent, error)) {
            if (entry.path().filename().native().rfind(start, 0) == 0 &&
                fs::is_directory(entry.symlink_status(error)) && !store_support::isLockHeld(toPath(entry.path())) &&
                holdsProjectsOnly(entry.path()))
                leftovers.insert(entry.path());
        }
    }
    std::vector<host::Path> paths;
    std::transform(leftovers.begin(), leftovers.end(), std::back_inserter(paths), toPath);
    return paths;
}

void Workshop::removeLeftover(const host::Path& folder) {
    const store_support::FolderLock lock(folder, std::chrono::milliseconds(0));
    host::FileSystem::remove_all(folder);
}

}  // namespace operations
