/// The interface of a node of a metadata tree: a name, attributes, and ordered child nodes.
///
/// A tree is not synchronised: one thread at a time may use it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "project/Export.hpp"

namespace project::metadata {

/// The order of the virtual operations is part of the binary interface: never reorder or insert, only append.
class PROJECT_METADATA_EXPORT MetadataNode {
public:
    virtual ~MetadataNode() = default;

    /// The value of the attribute `key`; empty if there is none. The reference stays valid until that attribute is
    /// overwritten or the node destroyed, also when others are added.
    virtual const std::u16string& get(std::u16string key) const = 0;

    /// Sets the attribute `key` to `value`, whether it exists or not. A failure changes nothing.
    /// @throws PutMetadataKeyFailure unless `isValidKey(key)`
    /// @throws PutMetadataValueFailure unless `isValidAttribute(value)`
    virtual void put(std::u16string key, std::u16string value) = 0;

    /// All keys, in ascending order of their UTF-16 code units.
    virtual std::vector<std::u16string> getAttributeKeys() const = 0;

    /// The name, which never changes.
    virtual const std::u16string& getName() const = 0;

    /// The child nodes in order of creation. Adding or removing a child invalidates iterators.
    virtual const std::vector<std::shared_ptr<MetadataNode>>& getChildNodes() const = 0;

    /// Appends a new child named `name`, which is not checked; children may share names.
    virtual MetadataNode& createChildNode(std::u16string name) = 0;

    /// Appends a new child with the default name.
    virtual MetadataNode& createChildNode() = 0;

    /// Removes the direct child that is `node` itself, not one that merely equals it. Otherwise nothing happens.
    virtual void remove(const MetadataNode& node) = 0;

    /// Merges `source` into this node: its attributes are put, copies of its children are appended. The name stays.
    /// `source` must not be this node or lie below it.
    /// @throws PutMetadataKeyFailure, PutMetadataValueFailure as `put`; what was copied before stays
    virtual void copy(const MetadataNode& source) = 0;

protected:
    MetadataNode() = default;
    MetadataNode(const MetadataNode&) = default;
    MetadataNode& operator=(const MetadataNode&) = default;
};

}  // namespace project::metadata
