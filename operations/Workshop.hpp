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
#include "operations/MetadataLock.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"

namespace operations {

/// A scratch folder ".project-metadata-" and random letters. It goes with the object; a process that is killed leaves
/// it. While it is in use, the file ".lock" in it is locked (MetadataLock.hpp).
class Workshop {
public:
    /// @param observer must outlive the object
    /// @throws host::FileSystemException, OperationError
    Workshop(const host::Path& parent, Observer& observer);

    /// The root folder of the project `name`.
    std::filesystem::path projectFolder(const std::string& name) const;

    /// The metadata folder of the project `name`.
    std::filesystem::path metadataFolder(const std::string& name) const;

    /// Makes the project `name` with all that `source` holds. @return how many paths that is, the root not counted
    /// @throws whatever the stores throw; host::InterruptedException
    std::size_t copy(const project::metadata::MetadataManager& source,
                     project::metadata::MetadataManagerFactory& factory, const std::string& name) const;

    /// What killed processes have left where the metadata of the project with the root folder `root` is or could be:
    /// folders of that name, with nothing in them but such projects, that are not in use.
    static std::vector<host::Path> findLeftovers(const host::Path& root);

    /// Removes one that `findLeftovers` has found. @throws OperationError if it is in use; host::FileSystemException
    static void removeLeftover(const host::Path& folder);

private:
    Observer& observer_;
    host::TempDirGuard guard_;
    MetadataLock lock_;
};

}  // namespace operations
