/// Metadata as `diff` and `merge` see it: all paths and nodes of a project, or of one file, in memory.
///
/// One thread at a time may use a tree; different trees may be read by different threads.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace operations {

using Attributes = std::map<std::u16string, std::u16string>;
using NodePtr = std::shared_ptr<const project::metadata::MetadataNode>;

/// A path with everything below it.
struct PathTree {
    project::metadata::PathElement step{{}, {}};  ///< the last step; meaningless for the root path
    Attributes attributes;                        ///< of its element in a file, those that tell the step included
    NodePtr node;                                 ///< null for a branch
    std::vector<PathTree> children;
};

/// Where a tree comes from, by which its root means something else.
enum class TreeForm {
    project,  ///< a project's store; the root is the root path
    core,     ///< a file <Project MetadataType="..">: an exported one, or a core file
    path,     ///< a file <Path Type=".." Location="..">, such as that of one path; the root is that path
    node,     ///< any other file, taken as the node of the root path
    empty     ///< a file without a byte, as which git gives a file that is not there
};

struct MetadataTree {
    TreeForm form = TreeForm::empty;
    PathTree root;

    /// The path of the root.
    project::metadata::MetadataPath rootPath() const;
};

/// Reads the project with the root folder `place`, or the file `place`.
/// @throws OperationError if it is neither, or what is damaged in it would pass for removed
/// @throws MetadataReadFailure for a file that cannot be read; whatever the store throws; host::InterruptedException
MetadataTree readTree(const host::Path& place, Observer& observer);

/// As `readTree`, for a project that is open already. `root` is its root folder.
MetadataTree readTree(const project::metadata::MetadataManager& store, const host::Path& root, Observer& observer);

/// Replaces `file` in one step by what `tree`, which is no project, says, the line break at its end included or not
/// as before.
/// @throws MetadataWriteFailure, host::FileSystemException; the file is then as it was
void writeTree(const MetadataTree& tree, const host::Path& file);

/// `path` with `step` after it.
project::metadata::MetadataPath childPath(const project::metadata::MetadataPath& path,
                                          const project::metadata::PathElement& step);

}  // namespace operations
