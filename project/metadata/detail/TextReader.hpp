/// Reads a tree with libxml2's text reader. What that makes of a file is what the file means.
#pragma once

#include <memory>

#include "host/FileSystem.hpp"
#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace project::metadata::detail {

enum class Extent {
    wholeTree,
    /// The root with its attributes.
    rootOnly
};

/// Reads from the position of `stream`, which is closed afterwards. `file` is what it was opened for.
/// @param leftOut if there is one, what is left out is noted there, and attributes that a node refuses are no error
/// @throws MetadataReadFailure, PutMetadataKeyFailure, PutMetadataValueFailure as `readFromFile`
std::unique_ptr<MetadataNode> readWithTextReader(host::InputFileStream& stream, const host::Path& file, Extent extent,
                                                 LeftOut* leftOut);

}  // namespace project::metadata::detail
