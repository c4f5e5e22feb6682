/// Copies of nodes that share what they say until one of them is changed.
///
/// What is kept never changes, so any number of threads may read it. A copy is a node like any other: one thread at a
/// time may use it.
#pragma once

#include <memory>

#include "project/Export.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace project::metadata {

/// What `node` says now, to be kept: later changes of `node` do not show in it. What a copy shares is not copied.
/// @throws PutMetadataKeyFailure, PutMetadataValueFailure if `node` holds what `put` refuses
PROJECT_METADATA_EXPORT std::shared_ptr<const MetadataNode> keepNode(const MetadataNode& node);

/// A copy that shares what `kept` says until it is changed, or asked for the child nodes that it has.
/// @param kept not null; nobody changes it any more, nor what is below it
PROJECT_METADATA_EXPORT std::unique_ptr<MetadataNode> copyKeptNode(std::shared_ptr<const MetadataNode> kept);

/// What `node` shares, if it is a copy that nobody has changed yet, or `node` itself: reading that makes no child
/// nodes. Valid until `node` is changed or destroyed.
PROJECT_METADATA_EXPORT const MetadataNode& getShared(const MetadataNode& node) noexcept;
const MetadataNode& getShared(const MetadataNode&& node) = delete;

}  // namespace project::metadata
