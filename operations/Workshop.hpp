/// Folders in which projects are made that belong to nobody yet.
///
/// Main thread only.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/TempDirGuard.hpp"
#include "operations/Library.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"
#include "store_support/FolderLock.hpp"

namespace operations {

/// A scratch folder ".project-metadata-" and random letters. It goes with the object; a process that is killed leaves
/// it. While it is in use, it is locked.
class Workshop {
public:
    /// @param observer must outlive the object
    /// @throws host::FileSystemException; as `store_support::FolderLock`
    Workshop(const host::Path& parent, Observer& observer);

    /// The root folder of the project `name`.
    std::filesystem::path projectFolder(const std::string& name) const;

    /// The metadata folder of the project `name`.
    std::filesystem::path metadataFolder(const std::string& name) const;

    ~Workshop();

    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;

    /// Makes the project `name` with all that `content` holds. @return how many paths that is, the root not counted
    /// @param options for the store, as `setOptions` takes them
    /// @throws whatever the store throws; host::InterruptedException; as `setOptions`
    std::size_t copy(const PathTree& content, pm::MetadataManagerFactory& factory, const std::string& name,
                     const std::vector<std::string>& options = {});

    /// From now on the projects made here are somebody's: what they have elsewhere does not go with the folder.
    void giveAway() noexcept { remote_.clear(); }

    /// What killed processes have left where the metadata of the project with the root folder `root` is or could be:
    /// folders of that name, with nothing in them but such projects, that are not in use.
    static std::vector<host::Path> findLeftovers(const host::Path& root);

    /// Removes one that `findLeftovers` has found. @throws as `store_support::FolderLock`; host::FileSystemException
    static void removeLeftover(const host::Path& folder);

private:
    Observer& observer_;
    std::vector<std::unique_ptr<pm::MetadataManager>> remote_;  // of projects with content elsewhere
    host::TempDirGuard guard_;
    store_support::FolderLock lock_;
};

}  // namespace operations
