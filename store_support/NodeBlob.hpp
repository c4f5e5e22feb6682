/// A metadata node, with all nodes below it, as a sequence of bytes. The form is written down at the top
/// of NodeBlob.cpp.
///
/// No function keeps state; all may be called from any thread. One thread at a time may use a decoder.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "project/metadata/NodeBuilder.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// A node in this form; no value where there is none.
using NodeValue = std::optional<std::string>;

/// Equal trees give equal bytes. As in XML files, a surrogate without a partner becomes U+FFFD.
std::string encodeNode(const MetadataNode& node);

/// For many nodes, one after the other: they share what nodes of one kind have in common.
class NodeDecoder {
public:
    /// Null if `bytes` are not what `encodeNode` makes.
    std::unique_ptr<MetadataNode> decode(std::string_view bytes);

private:
    project::metadata::NodeBuilder builder_;
    bool isBegun_ = false;  // whether there may be something of a tree in it
};

/// Whether a decoder makes a node of `bytes`; mostly without making it.
bool isNode(std::string_view bytes);

}  // namespace store_support
