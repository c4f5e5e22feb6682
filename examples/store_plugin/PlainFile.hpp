/// The file of a store "plain": the core file, with an element for every path, parents before their children.
///
///     <Plain MetadataType="plain">
///         <Entry/>
///         <Entry>
///             <Path Location="src" Type="Folder"/>
///         </Entry>
///         <Entry>
///             <Path Location="src" Type="Folder"/>
///             <Path Location="main.c" Type="File"/>
///             <Node>
///                 <Info Size="12"/>
///             </Node>
///         </Entry>
///     </Plain>
///
/// `store_support/PathXml.hpp` says how a step and a node are written.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "store_support/FolderLock.hpp"

namespace plain {

using NodePointer = std::shared_ptr<const project::metadata::MetadataNode>;

constexpr const char16_t* storeName = u"plain";

/// A path with its node, or with null for a branch.
struct Entry {
    project::metadata::MetadataPath path;
    NodePointer node;
};

/// All paths, the root first and each after its parent; siblings in their order.
using Content = std::vector<Entry>;

/// The content of `file`; of a missing file, the root path.
/// @throws MetadataReadFailure if it holds anything that `save` would not have written, so that no change loses that
Content load(const host::Path& file);

/// Makes `content` the content of `file`. When this returns, it is on disk; before that, or after an error, the old
/// content is.
/// @param lock the lock of its folder
/// @throws MetadataWriteFailure for nodes that could not be read back, and for errors of the disk
void save(const Content& content, const host::Path& file, const store_support::FolderLock& lock);

}  // namespace plain
