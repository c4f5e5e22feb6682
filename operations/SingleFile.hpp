/// All metadata of a project in one file, as `export` writes it.
///
/// Main thread only.
#pragma once

#include <memory>
#include <vector>

#include "host/Path.hpp"
#include "host/TempDirGuard.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace operations {

/// A copy of such a file, opened as a project of its own in a scratch folder that lives as long as this. So whatever is
/// done with it, the file itself is only read.
class SingleFile {
public:
    /// @throws OperationError naming `file` if it holds no metadata that can be read
    /// @throws host::FileSystemException if it cannot be copied
    SingleFile(const host::Path& file, Observer& observer);

    project::metadata::MetadataManager& store() const { return *store_; }

    /// What is damaged in it.
    const std::vector<project::metadata::MetadataDamage>& damage() const { return damage_; }

    /// The copy, which holds what was written to the store.
    host::Path copy() const;

private:
    void open(const host::Path& file);

    host::TempDirGuard scratch_;
    std::unique_ptr<project::metadata::MetadataManager> store_;
    std::vector<project::metadata::MetadataDamage> damage_;
};

}  // namespace operations
