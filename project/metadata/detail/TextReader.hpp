/// Reads a tree with libxml2's text reader. What that makes of a file is what the file means.
#pragma once

#include <memory>
#include <vector>

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
/// @param refused if there is one, attributes that a node refuses are added to it and left out, and no error
/// @throws MetadataReadFailure, PutMetadataKeyFailure, PutMetadataValueFailure as `readFromFile`
std::unique_ptr<MetadataNode> readWithTextReader(host::InputFileStream& stream, const host::Path& file, Extent extent,
                                                 std::vector<RefusedAttribute>* refused);

}  // namespace project::metadata::detail
