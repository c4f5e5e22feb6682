/// Copying all metadata of one store into another.
#pragma once

#include "project/Export.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace project::metadata {

/// Reads the whole tree of `source`, level by level, and hands it to `destination`: first all nodes but the root's in
/// one `setNodes`, then all paths, the root first, in one `setPaths`. So a store that keeps the contract holds
/// afterwards what the source held. Nothing is written before everything is read.
///
/// Both stores are used on the calling thread.
/// @throws whatever the stores throw; an error while reading leaves `destination` untouched
PROJECT_METADATA_EXPORT void copyMetadata(const MetadataManager& source, MetadataManager& destination);

}  // namespace project::metadata
