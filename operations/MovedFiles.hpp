/// Which files that a scan has found are those that earlier ones have described under another name.
///
/// Main thread only.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "operations/FolderScan.hpp"
#include "operations/Library.hpp"
#include "operations/ScanRecord.hpp"
#include "operations/ScannedNode.hpp"

namespace operations {

/// A path that is in a scanned folder, and not on disk, or that lies below such a one.
struct GonePath {
    pm::MetadataPath path;
    std::shared_ptr<pm::MetadataNode> node;  ///< null for a branch
    std::size_t parent = nowhere;            ///< in the list of them; `nowhere` for one whose parent is still there
    std::vector<std::size_t> children;
    bool isFile = false;     ///< of a file or folder: all others belong to somebody else
    bool isScanned = false;  ///< a scan has written all of it

    bool isFolder() const { return path.getPath().back().getType() == scannedFolderType; }
};

/// Decides by the rules of `findScanChange`.
/// @return for each of `gone` the element of `scan` that it is now, or `nowhere`; no element twice
/// @param gone each before those below it
/// @param isNew of each element of `scan`, whether it is described and has no path yet
std::vector<std::size_t> findMovedFiles(const std::vector<GonePath>& gone, const std::vector<ScannedFile>& scan,
                                        std::vector<bool> isNew, ScanRecord& record);

}  // namespace operations
