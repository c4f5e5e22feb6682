/// Reading and writing an XML file as a `MetadataFileFormat` has to: nothing that is in it may get lost.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <functional>
#include <memory>

#include "store_support/Library.hpp"

namespace store_support {

/// Reads `file`.
/// @param isOwn whether a file with this root, of which nothing below is known yet, is one to read
/// @return null if it is none, or no XML
/// @throws MetadataReadFailure if it is one and cannot be read, or holds anything but elements and
///         attributes; or if `file` is no regular file, or cannot be opened
std::unique_ptr<MetadataNode> readWholeFile(const Path& file,
                                            const std::function<bool(const MetadataNode& root)>& isOwn);

/// @param read what was read from `file`
/// @param rewritten what would be written in its place
/// @throws MetadataReadFailure naming the first element or attribute that would not be written again
void requireNothingLost(const MetadataNode& read, const MetadataNode& rewritten, const Path& file);

/// Makes `xml` the content of `file`, once it has been seen to read back as it is, where that needs proof.
/// @param compactEnding as for `writeToFile`
/// @throws as `requireReadable`, `requireReadsBack` and `replaceFile`
void writeWholeFile(const MetadataNode& xml, bool compactEnding, const Path& file);

}  // namespace store_support
