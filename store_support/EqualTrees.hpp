/// Where two metadata trees are compared. No function keeps state; all may be called from any thread.
#pragma once

#include "store_support/Library.hpp"

namespace store_support {

/// Whether both trees have the same names, attributes and children, in the same order.
bool equalTrees(const MetadataNode& a, const MetadataNode& b);

/// As that, for nodes that may be absent: null is equal to null only.
bool equalTrees(const MetadataNode* a, const MetadataNode* b);

}  // namespace store_support
