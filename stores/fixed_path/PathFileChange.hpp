/// A change to a "fixedPath" store: collected first, then carried out as one batch.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/fixed_path/PathFiles.hpp"

namespace stores::fixed_path {

/// Damaged files are left as they are: an operation that would overwrite or remove one throws `MetadataWriteFailure`.
class PathFileChange {
public:
    /// @param files what is there; must outlive the change
    explicit PathFileChange(PathFiles& files);

    /// Adds `path` and its missing ancestors, each as the last child of its parent.
    void add(const project::metadata::MetadataPath& path);

    /// Gives the existing or added `path` a copy of `node`, or takes its node away if that is null.
    /// @throws project::metadata::MetadataWriteFailure if the node could not be read back
    void setNode(const project::metadata::MetadataPath& path, const project::metadata::MetadataNode* node);

    /// Removes `path` with everything below it, if it exists. Not together with other changes.
    void remove(const project::metadata::MetadataPath& path);

    /// Makes `paths` and their ancestors the whole content, in that order. Damaged files that do not tell which path
    /// they belong to stay. Not together with other changes.
    void arrange(const std::vector<project::metadata::MetadataPath>& paths);

    /// Whether there is nothing to change.
    bool isEmpty() const noexcept { return writes_.empty() && removals_.empty(); }

    /// Carries it out and lets go of the lock.
    /// @param lock the lock of the metadata folder, held since before the first operation
    /// @throws project::metadata::MetadataWriteFailure if somebody else has changed a node that would be replaced or a
    ///         path that would be removed, and the user of this store does not know it
    void commit(const store_support::JobRunner& runJob, store_support::FolderLock& lock);

private:
    struct Write {
        host::Path file;
        PathFile content;
        bool isRoot;
        bool replacesNode;
        bool isSeen;  // whether the user knows what it replaces
    };

    /// What `file` says now, or will say after this change; null if it does not exist.
    const PathFile* find(const host::Path& file);

    void write(const host::Path& file, PathFile content, bool replacesNode = false);

    /// Notes that the path of `file` goes.
    void removeFile(const host::Path& file);

    /// Whether the user knows what `file` says now.
    bool isSeen(const host::Path& file) const;

    void requireSeen() const;

    /// After a change that failed, for old files that have come back as copies.
    void keepSeen() const noexcept;

    /// Makes the core file if it is missing: with that, a project has metadata.
    void addCoreFile();

    /// Makes `children` the order in `folder`; those that do not exist are added.
    void arrangeFolder(const host::Path& folder, const std::vector<project::metadata::PathElement>& children);

    /// The rank after all children in `childFolder`.
    Rank makeLastRank(const host::Path& childFolder);

    void writeStaged(const Write& write, const host::Path& staged) const;

    PathFiles& files_;
    std::vector<Write> writes_;
    std::unordered_map<std::u16string, std::size_t> writeIndex_;  // by the text of the file's path
    std::unordered_map<std::u16string, PathFilePtr> existing_;    // likewise; what was read, null where nothing is
    std::unordered_map<std::u16string, Rank> lastRanks_;          // by the text of the folder's path
    std::set<host::Path> removals_;
};

}  // namespace stores::fixed_path
