/// Reads a tree with libxml2's text reader. What that makes of a file is what the file means.
#pragma once

#include <memory>

#include "host/FileSystem.hpp"
#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace project::metadata::detail {

enum class Extent {
    wholeTree,
    /// The root with its attributes.
    rootOnly
};

/// Reads from the position of `stream`, which is closed afterwards. `file` is what it was opened for.
/// @throws MetadataReadFailure, PutMetadataKeyFailure, PutMetadataValueFailure as `readFromFile`
std::unique_ptr<MetadataNode> readWithTextReader(host::InputFileStream& stream, const host::Path& file, Extent extent);

}  // namespace project::metadata::detail
