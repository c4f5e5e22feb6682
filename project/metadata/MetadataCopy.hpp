/// Copying all metadata of one store into another.
#pragma once

#include "project/Export.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace project::metadata {

/// Reads the whole tree of `source`, level by level, and hands it to `destination`: first the nodes in one `setNodes`,
/// then all paths, the root first, in one `setPaths`. Nothing is written before everything is read.
///
/// A `destination` that keeps the contract has the paths of `source` afterwards, in their order, with their nodes, but
/// for these:
///
/// - The node of the root path is not handed on; one that `destination` has there stays.
/// - Of several paths with one text (`MetadataPath::string`) the node of the first is handed on, and no other.
/// - Where nothing is handed on for a path, a node that `destination` has there stays.
///
/// Both stores are used on the calling thread.
/// @throws whatever the stores throw; an error while reading leaves `destination` untouched, and one of `setPaths`
///         comes when the nodes are set
PROJECT_METADATA_EXPORT void copyMetadata(const MetadataManager& source, MetadataManager& destination);

}  // namespace project::metadata
