/// Changing nodes. Keeps no state; may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "project/metadata/MetadataNode.hpp"

namespace operations {

/// Values by key; without a value, the attribute is not to be there.
using AttributeChanges = std::map<std::u16string, std::optional<std::u16string>>;

/// A copy of `before` with `changes`; its other attributes, its name and its children are the same.
/// @throws PutMetadataKeyFailure, PutMetadataValueFailure for what no node can hold
std::unique_ptr<project::metadata::MetadataNode> changeAttributes(const project::metadata::MetadataNode& before,
                                                                  const AttributeChanges& changes);

}  // namespace operations
