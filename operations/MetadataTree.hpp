/// Metadata as `diff`, `merge`, `import` and `export` see it: all paths and nodes of a project or a file, in memory.
///
/// One thread at a time may use a tree; different trees may be read by different threads.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataFiles.hpp"

namespace operations {

using pm::PathTree;
using NodePtr = std::shared_ptr<const pm::MetadataNode>;

/// Where a tree comes from, by which its root means something else.
enum class TreeForm {
    project,  ///< a project's store; the root is the root path
    core,     ///< a file that a store can read, and that holds the root path: an exported one, or a core file
    path,     ///< a file that a store can read, and that holds another path, which is the root
    node,     ///< any other file, taken as the node of the root path
    empty     ///< a file without a byte, as which git gives a file that is not there
};

struct MetadataTree {
    TreeForm form = TreeForm::empty;
    PathTree root;
    std::shared_ptr<const pm::MetadataFileFormat> format = nullptr;  ///< for `core` and `path`

    /// The path of the root.
    pm::MetadataPath rootPath() const;
};

/// Reads the project with the root folder `place`, or the file `place`.
/// @throws OperationError if it is neither, or what is damaged in it would pass for removed
/// @throws MetadataReadFailure for a file that cannot be read, or not without a loss; whatever the store throws;
///         host::InterruptedException
MetadataTree readTree(const host::Path& place, Observer& observer);

/// As `readTree`, for a project that is open already. `root` is its root folder.
MetadataTree readTree(const pm::MetadataManager& store, const host::Path& root, Observer& observer);

/// All that `store` holds.
/// @throws whatever the store throws; host::InterruptedException
PathTree readPaths(const pm::MetadataManager& store, Progress& progress);

/// As that, but only `top` with everything below it, and the paths above it without their nodes.
PathTree readSubtree(const pm::MetadataManager& store, const pm::MetadataPath& top, Progress& progress);

/// Tells `sink` what `readSubtree` answers, while it is read.
/// @param leftOut gets a node's damage instead of the error, if the store says that its file is damaged; may be null
/// @throws as `readPaths`; whatever `sink` throws
void tellSubtree(const pm::MetadataManager& store, const pm::MetadataPath& top, Progress& progress,
                 std::vector<pm::MetadataDamage>* leftOut, pm::PathSink& sink);

/// The path `top` in `tree`, which is that of the root path; null if it is not there.
const PathTree* findPath(const PathTree& tree, const pm::MetadataPath& top);

/// Replaces `file` in one step by what `tree`, which is no project, says. A line break at its end stays, or stays away.
/// @throws MetadataWriteFailure; the file is then as it was
void writeTree(const MetadataTree& tree, const host::Path& file);

/// The names of all files of metadata that `readTree` reads by themselves, relative to a metadata folder, as patterns
/// of gitattributes(5).
std::vector<std::u16string> listFilePatterns();

/// `path` with `step` after it.
pm::MetadataPath childPath(const pm::MetadataPath& path, const pm::PathElement& step);

}  // namespace operations
