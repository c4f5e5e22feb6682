/// What a scan writes of a file into its path and node, and how that is known again.
///
/// A folder becomes a path element of type "Folder", everything else one of type "File", with the name as location,
/// and each path has a node. The attributes "Kind" ("file", "folder", "symlink" or "other"), "Size" (of a file, in
/// bytes), "ModificationTime" (as `formatTime`, if times are wanted) and "Missing" are the scan's own. The last one is
/// "true" if the file is gone, but there is something at the path, or below it, that no scan has written. What somebody
/// else has put there stays.
///
/// But for the times, the attributes are the same wherever the same files are, so that two who have scanned can merge.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "operations/FolderScan.hpp"
#include "operations/Library.hpp"

namespace operations {

/// The type of the path element of a folder.
extern const std::u16string& scannedFolderType;

/// The type of the path element of `file`.
const std::u16string& scannedTypeOf(const ScannedFile& file);

/// Whether `type` is one of these types.
bool isScannedType(const std::u16string& type);

/// No element of a scan.
constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

/// The element of `scan` that `step` leads to from the folder `folder`; `nowhere` if there is none.
std::size_t findChild(const std::vector<ScannedFile>& scan, std::size_t folder, const pm::PathElement& step);

/// Whether all of `node` was written by a scan.
bool isScannedNode(const pm::MetadataNode& node);

/// What a scan has written of a file in `node`, as far as other files rarely have the same. A value type.
struct Description {
    std::uint64_t size = 0;  ///< 0 if it does not say
    std::u16string time;     ///< of modification, as `formatTime`; empty if it does not say
};

Description getDescription(const pm::MetadataNode& node);

/// `before` with what a scan says of `file` in place of what an earlier one has said, which settles marks of conflicts
/// about that.
/// @param before null if there is no node
/// @return null if `before` says the same
std::shared_ptr<pm::MetadataNode> describe(const ScannedFile& file, const pm::MetadataNode* before, bool withTimes);

/// Whether the mark stands in `node`, or can not, since somebody has given the attribute a value of his own.
/// @param node null if there is no node
bool isMarkedMissing(const pm::MetadataNode* node);

/// `before` with the mark.
/// @param before null if there is no node
std::shared_ptr<pm::MetadataNode> markMissing(const pm::MetadataNode* before);

}  // namespace operations
