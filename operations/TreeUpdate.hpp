/// Reading again of a project only what may have changed, of which the file system says where it lies.
///
/// No function keeps state.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "operations/Library.hpp"
#include "operations/MetadataTree.hpp"

namespace operations {

/// An entry of a metadata folder, in which something may have changed. A value type.
struct ChangedEntry {
    bool isWhole = false;                        ///< whether it is a folder that has come or gone
    std::map<std::string, ChangedEntry> inside;  ///< by the names that the system knows; only in folders
};

/// What `updateTree` has found. A value type.
struct TreeUpdate {
    PathTree now;            ///< all of it
    PathTree before, after;  ///< the same part of both: all that is different, and some that is not
};

/// @param tree what `store` held before
/// @param folder the metadata folder
/// @param changes all that may have changed there since
/// @return no value if only all of it can tell: the store is no `PathFileLister`, or what has changed is damaged
/// @throws whatever the store throws; host::InterruptedException
std::optional<TreeUpdate> updateTree(const PathTree& tree, const pm::MetadataManager& store, const host::Path& folder,
                                     const ChangedEntry& changes);

}  // namespace operations
