/// Reading and writing a core file that may be a pipe or a device, on which the system could wait for ever. Each
/// function may be called from any thread, as those of MetadataXml.hpp.
#pragma once

#include <memory>

#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace project::metadata::detail {

/// As `readFromFile`. A symbolic link is followed.
/// @throws MetadataReadFailure also if `coreFile` leads to a pipe, a socket or a device; others as `readFromFile`
std::unique_ptr<MetadataNode> readCoreFile(const host::Path& coreFile);

/// As `writeToFile` with the compact ending. A symbolic link is followed.
/// @throws MetadataWriteFailure also if `coreFile` leads to a pipe, a socket or a device; others as `writeToFile`
void writeCoreFile(const MetadataNode& node, const host::Path& coreFile);

}  // namespace project::metadata::detail
