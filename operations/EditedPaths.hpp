/// The paths of a project with changes that are not made yet: the tree of its branches, once there has to be one.
///
/// As long as paths are only added, or only removed, the store is asked about single ones. For all else, every path is
/// read into a tree, in which branches come and go.
///
/// One thread at a time, as the stores.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

class EditedPaths {
public:
    /// Learns of a path that goes.
    using OnGone = std::function<void(const pm::MetadataPath& path)>;

    /// Learns of a path `to` that is to be what `from` is.
    using OnCopy = std::function<void(const pm::MetadataPath& from, const pm::MetadataPath& to)>;

    /// @param store is only read; it and `observer` must outlive the object
    /// @param onGone called for what is removed from the tree; of what the store alone knows, nobody is told
    EditedPaths(const pm::MetadataManager& store, Observer& observer, OnGone onGone);
    ~EditedPaths();

    EditedPaths(const EditedPaths&) = delete;
    EditedPaths& operator=(const EditedPaths&) = delete;

    bool has(const pm::MetadataPath& path) const;

    /// Whether `path` was added before there was a tree.
    bool isAdded(const pm::MetadataPath& path) const { return addedSet_.count(path) > 0; }

    /// Whether the store has `path`, which is there now.
    bool wasThere(const pm::MetadataPath& path) const;

    /// Whether nothing has been changed.
    bool areUntouched() const { return !tree_ && !hasBranches_ && added_.empty() && removed_.empty(); }

    /// The last steps of the children of `path`, which is there.
    std::vector<pm::PathElement> listChildren(const pm::MetadataPath& path) const;

    /// Adds `path` and what is missing above it, each as the last of its siblings and with a node to come.
    void make(const pm::MetadataPath& path);

    /// The same for a path that may stay without a node.
    void addLast(const pm::MetadataPath& path);

    /// Learns that `path` may stay without a node, though it was to get one.
    void allowBranch(const pm::MetadataPath& path) { hasBranches_ = hasBranches_ || isAdded(path); }

    /// Adds `path` before or behind its sibling `sibling`, which is there.
    void addBeside(const pm::MetadataPath& path, const pm::MetadataPath& sibling, bool isBefore);

    /// Removes `path` with everything below it; of the root path, only what is below.
    void remove(const pm::MetadataPath& path);

    /// As the first of all changes: adds `to` and removes `from`, below which there is nothing.
    void replaceLeaf(const pm::MetadataPath& from, const pm::MetadataPath& to);

    /// Moves `from`, with everything below it. Below the same parent it keeps its place, elsewhere it becomes the last.
    void move(const pm::MetadataPath& from, const pm::MetadataPath& to, const OnCopy& onCopy);

    /// Copies `from`, with everything below it, to the last place below the parent of `to`.
    void copy(const pm::MetadataPath& from, const pm::MetadataPath& to, const OnCopy& onCopy);

    /// To be called before `finish`.
    /// @param needsOrder whether the order of what is new has to be told
    void settle(bool needsOrder);

    /// Says in `change` which paths come and go, and in which order they are if that has to be told.
    void finish(StoreChange& change) const;

private:
    struct Branch;

    Branch& tree();
    Branch* findBranch(const pm::MetadataPath& path) const;
    void removeBranch(const pm::MetadataPath& path);
    void copyBranch(const Branch& source, const pm::MetadataPath& from, const pm::MetadataPath& to, Branch& target,
                    const OnCopy& onCopy, Progress& progress);
    void forget(const Branch& branch, const pm::MetadataPath& path) const;
    static void listBranch(const Branch& branch, const pm::MetadataPath& path, std::vector<pm::MetadataPath>& paths);

    const pm::MetadataManager& store_;
    Observer& observer_;
    OnGone onGone_;
    std::vector<pm::MetadataPath> added_;  // until there is a tree
    PathSet addedSet_;
    std::vector<pm::MetadataPath> gone_;     // the tops of what was removed; likewise
    std::vector<pm::MetadataPath> removed_;  // all of it
    PathSet removedSet_;
    bool hasBranches_ = false;              // whether a path was added that may have no node
    std::unique_ptr<Branch> tree_;          // once adding alone, or removing alone, is not all
    std::vector<pm::MetadataPath> before_;  // the paths of the store, in the order of the tree
    PathSet beforeSet_;
};

}  // namespace operations
