/// Metadata trees as XML files. The file format is written down at the top of MetadataXml.cpp.
///
/// Calls for different files may run on different threads; two calls for one file must not overlap.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace project::metadata {

/// Writes the tree below `node` to `file`, replacing it, and makes the folder above if it is missing. With
/// `compactEnding` no line break follows the root's end tag, otherwise exactly one does.
///
/// When the file cannot be written because it, or for a new file its folder, is read-only, that is made writable if
/// the user's settings allow it, and writing is tried once more. A write that fails part-way leaves what was written.
///
/// Not every tree reads back as it was, and that is not checked. Stores do not take these:
///
/// - The names of nodes must be XML names.
/// - A key with blanks around it reads back without them; next to the same key without them, or with others, it makes
///   the file unreadable.
/// - Half of a surrogate pair, which `isValidAttribute` lets pass at the ends of the blocks, reads back as U+FFFD.
/// - Nodes more than 256 levels below the root, and a start tag of more than 10,000,000 bytes, may make it unreadable.
/// - So may attributes that XML takes for declarations of namespaces, `xmlns` and `xmlns:...`, or they read back with
///   `&#38;` for `&`: the text reader of libxml2 before 2.13 says so.
///
/// @throws ReadOnlyMetadataFailure naming what stayed read-only, the file or its folder
/// @throws MetadataWriteFailure naming the file
/// @throws FailedToMakeMetadataWritable naming one of these, or what it leads to if it is a symbolic link
PROJECT_METADATA_EXPORT void writeToFile(const MetadataNode& node, const host::Path& file, bool compactEnding);

/// Takes a tree in the order in which it stands in a file. Keys must be valid, names XML names.
class PROJECT_METADATA_EXPORT XmlSink {
public:
    virtual ~XmlSink() = default;

    /// Begins an element.
    /// @param name kept by whoever calls, until the element ends
    virtual void begin(const std::u16string& name) = 0;

    /// Adds an attribute to the element that has just begun, each key once, in any order.
    virtual void put(const std::u16string& key, const std::u16string& value) = 0;

    /// Adds the tree below `node` as a child of the element that was begun last and has not ended.
    /// @param node not null
    virtual void add(const std::shared_ptr<const MetadataNode>& node) = 0;

    /// Ends the element that was begun last.
    virtual void end() = 0;

protected:
    XmlSink() = default;
    XmlSink(const XmlSink&) = default;
    XmlSink& operator=(const XmlSink&) = default;
};

/// The same for a tree that is not made of nodes.
/// @param tell tells the one root and all that is in it; may be called again, from the beginning. Lets pass what the
///        sink throws, which is that nothing more can be written; what it throws itself passes too.
/// @return whether it needs proof, see `needsProof`
PROJECT_METADATA_EXPORT bool writeToFile(const std::function<void(XmlSink& sink)>& tell, const host::Path& file,
                                         bool compactEnding);

/// Whether only a look at the file tells if `tree`, written to one, reads back the same: it has names that XML may take
/// for namespaces', or start tags of a size near the limits of libxml2. Names of nodes that are no XML names, keys with
/// blanks around them, halves of surrogate pairs and the depth of the tree are not looked at: that no tree with these
/// reads back the same is known without a file.
PROJECT_METADATA_EXPORT bool needsProof(const MetadataNode& tree);

/// Reads the tree in `file`. What is not an element or an attribute is ignored.
///
/// @return the root, a `MetadataNodeSpecification`; never null
/// @throws MetadataReadFailure if the file cannot be read, is not well-formed, or is beyond a limit of libxml2, such as
///         256 levels of elements below the root
/// @throws PutMetadataKeyFailure, PutMetadataValueFailure if it holds an attribute that a node refuses
PROJECT_METADATA_EXPORT std::unique_ptr<MetadataNode> readFromFile(const host::Path& file);

/// An attribute in a file that a node refuses. A value type.
struct RefusedAttribute {
    const MetadataNode* node;  ///< the one that lacks it, in the tree that was read
    int line;                  ///< where the start tag of the node ends, counted from 1; of lines beyond 65,535, that
    std::u16string key;
    std::u16string value;
    bool isKeyRefused;  ///< otherwise the value is
};

/// What a file holds and its tree does not. A value type.
struct LeftOut {
    std::vector<RefusedAttribute> refused;  ///< in the order of the file

    /// The first of what is neither element nor attribute, in words and with its line, such as "a comment in line 3";
    /// empty if there is none. Blanks between elements do not count.
    std::u16string passedOver;
};

/// Reads the tree in `file` without the attributes that a node refuses, and says what is left out. Unless that is
/// nothing, what is read this way must not replace the file: it is less than what was there.
///
/// @return the root, a `MetadataNodeSpecification`; never null
/// @throws MetadataReadFailure as `readFromFile`
PROJECT_METADATA_EXPORT std::unique_ptr<MetadataNode> readFromFile(const host::Path& file, LeftOut& leftOut);

/// Reads the tree in `bytes`, the content of a file, if it is a plain one, and all that it holds.
///
/// @return the same as `readFromFile`; null if only that can tell what the file means, or what is wrong with it
PROJECT_METADATA_EXPORT std::unique_ptr<MetadataNode> readPlainBytes(std::string_view bytes);

/// Reads the root node of the tree in `file` with its attributes and without its children. Of a root with children,
/// what is far behind its start tag is not looked at: that costs the same for every file, and a file broken there is
/// none that fails.
///
/// @return a `MetadataNodeSpecification`; never null
/// @throws as `readFromFile`
PROJECT_METADATA_EXPORT std::unique_ptr<MetadataNode> readRootFromFile(const host::Path& file);

}  // namespace project::metadata
