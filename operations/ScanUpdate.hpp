/// What a scan changes in a store: which paths stay, move, come and go. What it writes into them is in ScannedNode.hpp.
#pragma once

#include <utility>
#include <vector>

#include "operations/FolderScan.hpp"
#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "operations/ScanRecord.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

struct ScanWish {
    bool withTimes = false;
    bool prune = false;  ///< remove what is missing
};

struct ScanChange {
    StoreChange change;  ///< what has moved counts neither as added nor as removed
    std::vector<std::pair<pm::MetadataPath, pm::MetadataPath>> moved;  ///< from, to
    std::vector<pm::MetadataPath> missing;  ///< all that are marked below the folder, after the change
    ScanRecord::Traces traces;              ///< of all that was described
    ScanRecord::Fingerprints fingerprints;  ///< of the folders in which there is nothing to do
};

/// What makes `store` hold what `scan` found, where its first element stands for the root path. New siblings come
/// before the next one by name; those that are there keep their order. No path is touched that is not in the scanned
/// folder, or where the scan did not look. Of those that are, nothing is lost that a scan did not write: other
/// attributes, child nodes and names of nodes, and paths of other types with all below them.
///
/// The path of a file that is gone
///
/// 1. moves with its node to that of a new file, if that is the same one by its trace: it has the same identity and was
///    made at the same time, or, where that is not known, has the same time of modification and size too; or it has the
///    same name, time of modification and size, and there is no other such pair. Below a folder that has moved, what
///    has kept its name moves with it, and so does what is not on disk;
/// 2. is removed, if a scan has written all that is there and below it;
/// 3. stays otherwise, and is marked as missing.
///
/// Main thread only.
/// @throws whatever the store throws; host::InterruptedException
ScanChange findScanChange(const pm::MetadataManager& store, const std::vector<ScannedFile>& scan, const ScanWish& wish,
                          ScanRecord& record, Progress& progress);

}  // namespace operations
