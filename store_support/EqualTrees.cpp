#include "store_support/EqualTrees.hpp"

#include <algorithm>

#include "project/metadata/SharedNode.hpp"

namespace store_support {

using project::metadata::getShared;

bool equalTrees(const MetadataNode& first, const MetadataNode& second) {
    const MetadataNode& a = getShared(first);
    const MetadataNode& b = getShared(second);
    if (&a == &b)
        return true;
    if (a.getName() != b.getName())
        return false;
    const auto keys = a.getAttributeKeys();
    return keys == b.getAttributeKeys() &&
           std::all_of(keys.begin(), keys.end(), [&](const auto& key) { return a.get(key) == b.get(key); }) &&
           std::equal(a.getChildNodes().begin(), a.getChildNodes().end(), b.getChildNodes().begin(),
                      b.getChildNodes().end(), [](const auto& x, const auto& y) { return equalTrees(*x, *y); });
}

bool equalTrees(const MetadataNode* a, const MetadataNode* b) {
    return a && b ? equalTrees(*a, *b) : a == b;
}

}  // namespace store_support
