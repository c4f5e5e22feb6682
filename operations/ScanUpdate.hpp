/// What a scan changes in a store.
///
/// A folder becomes a path element of type "Folder", everything else one of type "File", with the name as location,
/// and each path has a node with the attributes "Kind" ("file", "folder", "symlink" or "other"), "ModificationTime" (as
/// `formatTime`) and, for files, "Size" in bytes.
#pragma once

#include <vector>

#include "operations/FolderScan.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace operations {

/// What makes `store` hold what `scan` found, siblings in its order. "Folder" and "File" paths of files that are gone
/// are removed with everything below them. The rest belongs to somebody else and stays: paths of other types and what
/// is below them, other attributes, child nodes. Main thread only.
/// @throws whatever the store throws; host::InterruptedException
StoreChange findScanChange(const project::metadata::MetadataManager& store, const std::vector<ScannedFile>& scan,
                           Progress& progress);

}  // namespace operations
