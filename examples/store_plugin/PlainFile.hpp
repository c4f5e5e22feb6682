/// The file of a store "plain": the core file, with an element for every path, parents before their children.
///
///     <Plain MetadataType="plain">
///         <Path/>
///         <Path>
///             <Step Location="src" Type="Folder"/>
///         </Path>
///         <Path>
///             <Step Location="src" Type="Folder"/>
///             <Step Location="main.c" Type="File"/>
///             <Node>
///                 <Info Size="12"/>
///             </Node>
///         </Path>
///     </Plain>
///
/// In a step, "%" and what is no printable ASCII character stand as "%" and four hexadecimal digits.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace plain {

using NodePointer = std::shared_ptr<const project::metadata::MetadataNode>;

extern const std::u16string storeName;

/// A path with its node, or with null for a branch.
struct Entry {
    project::metadata::MetadataPath path;
    NodePointer node;
};

/// All paths, the root first and each after its parent; siblings in their order.
using Content = std::vector<Entry>;

/// Whether both are null or the same trees.
bool isSame(const NodePointer& a, const NodePointer& b);

/// A text that no other path has.
std::u16string makeKey(const project::metadata::MetadataPath& path);

/// The content of `file`; of a missing file, the root path.
/// @throws MetadataReadFailure if it holds anything that `save` would not have written, so that no change loses that
Content load(const host::Path& file);

/// Makes `content` the content of `file`. When this returns, it is on disk; before that, or after an error, the old
/// content is.
/// @throws MetadataWriteFailure for nodes that could not be read back, and for errors of the disk
void save(const Content& content, const host::Path& file);

/// Keeps all other stores from changing a project, in this process and in others.
class Lock {
public:
    /// Locks the folder `root`, and waits for ten seconds if it is locked.
    /// @throws MetadataWriteFailure naming the folder
    explicit Lock(const host::Path& root);
    ~Lock();

    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    int folder_;
};

}  // namespace plain
