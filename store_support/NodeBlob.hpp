/// A metadata node, with all nodes below it, as a sequence of bytes. The form is written down at the top
/// of NodeBlob.cpp.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "store_support/Library.hpp"

namespace store_support {

/// A node in this form; no value where there is none.
using NodeValue = std::optional<std::string>;

/// Equal trees give equal bytes. As in XML files, a surrogate without a partner becomes U+FFFD.
std::string encodeNode(const MetadataNode& node);

/// Null if `bytes` are not what `encodeNode` makes.
std::unique_ptr<MetadataNode> decodeNode(std::string_view bytes);

/// Whether `decodeNode` makes a node of `bytes`; mostly without making it.
bool isNode(std::string_view bytes);

}  // namespace store_support
