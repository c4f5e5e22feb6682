/// The interface of a metadata store: a tree of paths, each with or without a node.
///
/// Every path but the root is the child of one path; siblings have an order. A path may exist as a branch, without a
/// node. The root path always exists. Paths are told apart by their steps (`operator==`), not by their texts.
///
/// One thread at a time may use a store.
///
/// What a change promises:
///
/// - It is a batch, all or nothing, whether it ends well, with an error, or with the process or the machine. Once it
///   has returned, it is on disk.
/// - What it does not change it does not write.
/// - It happens as one `FileJob`, run by the `FileJobManager` that is registered as a service, if there is one. The
///   error of a subscriber ends the operation: of one that is told before the change, with the old content; of one that
///   is told after it, with the new content. A subscriber must not change the same project before the batch is over.
/// - What could not be read back is refused before anything is touched.
///
/// Several stores, in one process or in many, may be open on one project. Each sees what the others wrote, and a
/// reading operation sees all of a batch or nothing of it. One of them changes the project at a time; another waits,
/// and after some seconds gives up with an error that names the lock. A store does not overwrite unseen: if the node
/// that it is to replace, or anything that it is to remove, was changed on disk by somebody else since the store was
/// opened or last read (`getNode`, `hasNode`) or wrote it, the whole change is refused with a `MetadataWriteFailure`.
/// Nor does a node come back unseen: where one was that the store has told of or written, and that somebody else has
/// removed since, no node is set and no path added, there or below. Reading the node again settles both.
///
/// Damage is reported, not spread: what is readable is read, what is damaged is named (MetadataDamage.hpp) and never
/// overwritten or removed by a change.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "project/Export.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace project::metadata {

/// The order of the virtual operations is part of the binary interface: never reorder or insert, only append.
class PROJECT_METADATA_EXPORT MetadataManager {
public:
    virtual ~MetadataManager() = default;

    /// Stores a copy of `node` at `path`, in place of a node that is there. The path and its missing ancestors are
    /// added first, as by `addPath`.
    virtual void setNode(const MetadataPath& path, const MetadataNode& node) = 0;

    /// Removes the node at `path`, if there is one. The path and what is below it stay.
    virtual void removeNode(const MetadataPath& path) = 0;

    /// Adds `path` and its missing ancestors, each as the last child of its parent and without a node. A path that
    /// exists stays as it is.
    virtual void addPath(const MetadataPath& path) = 0;

    /// Removes `path` with everything below it, if it exists. The root path only loses its node and everything below.
    virtual void removePath(const MetadataPath& path) = 0;

    /// @return a copy of the node at `path`, null if there is none
    virtual std::unique_ptr<MetadataNode> getNode(const MetadataPath& path) const = 0;

    /// `setNode` for every entry, in the order of the map, as one batch: all of them or none.
    virtual void setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) = 0;

    /// `removePath` for every entry, as one batch.
    virtual void removePaths(const std::vector<MetadataPath>& paths) = 0;

    /// @return whether a node is stored at `path`, be it one that is damaged, for which `getNode` throws
    virtual bool hasNode(const MetadataPath& path) const = 0;

    /// @return the full paths of the direct children of `path`, in their order; none if `path` does not exist
    virtual std::vector<MetadataPath> getChildren(const MetadataPath& path) const = 0;

    /// @return whether `path` exists, with a node or as a branch
    virtual bool hasPath(const MetadataPath& path) const = 0;

    /// Makes `paths` the whole content, as one batch: missing paths are added, the others removed with their nodes
    /// (the root path loses its node if it is not listed), and siblings take the order in which they are listed.
    /// Ancestors of listed paths count as listed where they are first needed. Nodes at listed paths stay.
    /// Where there is no project yet, this makes it, even if only the root path is listed.
    virtual void setPaths(const std::vector<MetadataPath>& paths) = 0;

protected:
    MetadataManager() = default;
    MetadataManager(const MetadataManager&) = default;
    MetadataManager& operator=(const MetadataManager&) = default;
};

}  // namespace project::metadata
