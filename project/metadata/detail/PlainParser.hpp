/// A faster way to read plain documents, by libxml2's parser beneath the text reader: without the tree of its own that
/// the text reader makes and throws away. It decides nothing: what is not plain, and every error, is left to the text
/// reader. Without this file nothing would change but the time that reading takes.
#pragma once

#include <memory>
#include <string_view>

#include "host/FileSystem.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/detail/TextReader.hpp"

namespace project::metadata::detail {

/// What makes a document one for the text reader.
enum class Obstacle {
    none,
    encoding,      ///< not UTF-8, not declared as that, or with a byte order mark
    documentType,  ///< with all that may be in it
    prefix,        ///< of a name, or the declaration of a namespace
    limit,         ///< something that is too large, or nearly so
    attribute,     ///< one that a node refuses
    rest,          ///< what is neither element nor attribute, if that is one
    error          ///< whatever libxml2 finds, warnings too, and a file that cannot be read to its end
};

/// What is made of text, comments, CDATA and processing instructions.
enum class Rest { isPassedOver, isObstacle };

struct PlainDocument {
    std::unique_ptr<MetadataNode> root;  ///< null exactly if there is an obstacle
    Obstacle obstacle = Obstacle::none;
};

/// Reads from the position of `stream`. What libxml2 prints is not kept back.
PlainDocument parsePlainDocument(host::InputFileStream& stream, Extent extent, Rest rest);

/// Reads the whole tree in `bytes`; all else is an obstacle.
PlainDocument parsePlainDocument(std::string_view bytes);

}  // namespace project::metadata::detail
