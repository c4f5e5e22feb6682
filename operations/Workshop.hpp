/// Folders in which projects are made that belong to nobody yet.
///
/// Main thread only.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "host/TempDirGuard.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataManager.hpp"
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

    /// Makes the project `name` with all that `content` holds. @return how many paths that is, the root not counted
    /// @throws whatever the store throws; host::InterruptedException
    std::size_t copy(const PathTree& content, project::metadata::MetadataManagerFactory& factory,
                     const std::string& name) const;

    /// What killed processes have left where the metadata of the project with the root folder `root` is or could be:
    /// folders of that name, with nothing in them but such projects, that are not in use.
    static std::vector<host::Path> findLeftovers(const host::Path& root);

    /// Removes one that `findLeftovers` has found. @throws as `store_support::FolderLock`; host::FileSystemException
    static void removeLeftover(const host::Path& folder);

private:
    Observer& observer_;
    host::TempDirGuard guard_;
    store_support::FolderLock lock_;
};

}  // namespace operations
