/// Makes trees of nodes one after the other, for stores that keep nodes in a form of their own. The trees take as
/// little memory as those that are read from files, and share with each other what nodes of one kind have in common.
///
/// One thread at a time may use an object. The trees know nothing of it and of each other.
#pragma once

#include <memory>
#include <string_view>

#include "project/Export.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace project::metadata {

class PROJECT_METADATA_EXPORT NodeBuilder {
public:
    NodeBuilder();
    ~NodeBuilder();

    NodeBuilder(const NodeBuilder&) = delete;
    NodeBuilder& operator=(const NodeBuilder&) = delete;

    /// Begins the root of a tree or, within the node that was begun last and has not ended, a child. Names and values
    /// are UTF-8, names without U+0000; at most 257 nodes are open at a time.
    /// @throws PutMetadataKeyFailure, PutMetadataValueFailure for the attributes of the parent; only `clear` helps then
    void begin(std::string_view name);

    /// Adds an attribute to the node that has just begun. If one key comes again, the last value is kept.
    void put(std::string_view key, std::string_view value);

    /// Ends the node that was begun last and has not ended.
    /// @throws as `begin`, for the attributes of this node
    void end();

    /// The tree whose root has ended, a `MetadataNodeSpecification`.
    std::unique_ptr<MetadataNode> take();

    /// Drops the tree that was begun and not taken, if there is one.
    void clear();

private:
    class Trees;

    std::unique_ptr<Trees> trees_;
};

}  // namespace project::metadata
