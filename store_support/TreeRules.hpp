/// Which metadata trees a store can keep in an XML file: those that read back as they were written.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "project/metadata/MetadataXml.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// The deepest nesting of elements that the XML reader takes.
constexpr int maximumXmlDepth = 256;

/// How many steps a path may have. All stores have this limit, so that what one takes can be exported and converted: it
/// leaves room for a node in the one file of a store that nests the elements of paths.
constexpr std::size_t maximumSteps = 250;

/// What is wrong with a path that has as many, and paths below it, which only damage makes: follows its name.
std::u16string pathsBeyondLimit();

/// Checks what all stores have to take or refuse alike: `path` has `maximumSteps` at most, and each can be read back.
/// @param file the file to name in the error
/// @throws MetadataWriteFailure naming the file and what is wrong
void requireStorable(const MetadataPath& path, const Path& file);

/// Checks `node` and all nodes below it: names must be XML names, attribute keys XML names without blanks around them
/// (a reader drops those), values what XML keeps, and nothing nested too deep.
///
/// @param depth how many elements will lie above `node` in its file
/// @param file the file it is to be written to, for the error
/// @throws MetadataWriteFailure naming the file and what is wrong
void requireReadable(const MetadataNode& node, int depth, const Path& file);

/// What is to be stored of `node`, for a change that is over before anybody changes or destroys `node`: not copied,
/// unless it is a node of somebody else's kind, which may tell its keys in any order, and hold what no other takes.
/// @param file the file to name in the error
/// @return null if `node` is null; a `use_count` of 0 if it was not copied
/// @throws as `requireReadable`, if it cannot be copied
std::shared_ptr<const project::metadata::MetadataNode> borrowNode(const project::metadata::MetadataNode* node,
                                                                  const host::Path& file);

/// Checks that a path of `depth` steps can be kept.
/// @throws as `requireReadable`
void requireDepth(int depth, const Path& file);

/// Reads `writtenFile` and compares it with `node`, which was written to it.
/// @param file the file to name in the error
/// @throws MetadataWriteFailure if they differ or it cannot be read
void requireReadsBack(const MetadataNode& node, const Path& writtenFile, const Path& file);

/// Writes the tree that `tell` tells to `staged`, and reads it back where that needs proof: of old content as of new,
/// since files that others have written may hold what no store takes.
/// @param tell as for `project::metadata::writeToFile`, which says what `compactEnding` is
/// @param file the file to name in the error
/// @throws as `project::metadata::writeToFile` and `requireReadsBack`
void writeProved(const std::function<void(project::metadata::XmlSink& sink)>& tell, const Path& staged,
                 bool compactEnding, const Path& file);

/// For stores that keep nodes in a form of their own: what one store takes, all take, so that it can be exported and
/// converted. A node that needs proof is written to a scratch file and read for that.
/// @param file the file to name in the error
/// @return what is to be stored, as `borrowNode`
/// @throws project::metadata::MetadataWriteFailure, if `node` is none that all stores can keep
std::shared_ptr<const project::metadata::MetadataNode> requireStorable(const project::metadata::MetadataNode& node,
                                                                       const host::Path& file);

}  // namespace store_support
