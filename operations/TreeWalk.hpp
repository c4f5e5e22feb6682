/// Going through a store's paths, without stopping at what is damaged and without keeping more than one path's
/// siblings and ancestors' siblings in memory.
///
/// One thread at a time, as the stores.
#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/RepeatableRead.hpp"

namespace operations {

/// Stands on one path after the other, every path before those below it, siblings in their order.
class TreeWalk {
public:
    static constexpr std::size_t anyDepth = std::numeric_limits<std::size_t>::max();

    /// A walk that stands on `start` once `next` was called, and goes `maxDepth` levels below it.
    /// @param store must outlive the walk
    /// @param onError called for what cannot be read, while the exception is handled; the walk goes on after that.
    ///        Without, the exceptions pass.
    TreeWalk(const pm::MetadataManager& store, const pm::MetadataPath& start, std::size_t maxDepth = anyDepth,
             std::function<void()> onError = nullptr);

    /// Moves on. @return whether there was another path
    /// @throws whatever the store throws for `start`; what is damaged below is left out
    /// @throws host::InterruptedException
    bool next();

    const pm::MetadataPath& path() const;

    /// How many levels below the start.
    std::size_t depth() const { return levels_.size() - 1; }

    /// Whether no sibling follows.
    bool isLast() const;

    /// Whether the walk goes on below this path.
    bool descends() const { return !children_.empty(); }

    /// A copy of this path's node; null if there is none, or none that can be read.
    std::unique_ptr<pm::MetadataNode> readNode();

    /// Whether this path's node, when it was asked for, or what is below it could not be read.
    bool isUnreadable() const { return isUnreadable_; }

    /// How many paths were unreadable so far.
    std::size_t unreadableCount() const { return unreadableCount_; }

private:
    struct Level {
        std::vector<pm::MetadataPath> siblings;
        std::size_t next;
    };

    void listChildren();
    void noteError();

    const project::metadata::MetadataManager& store_;
    project::metadata::RepeatableRead reading_;
    std::size_t maxDepth_;
    std::function<void()> onError_;
    std::vector<Level> levels_;
    std::vector<pm::MetadataPath> children_;  // the level that is next
    bool isUnreadable_ = false;
    std::size_t unreadableCount_ = 0;
};

/// Whether `path` is `top` or lies below it.
bool isAtOrBelow(const pm::MetadataPath& path, const pm::MetadataPath& top);

/// `top` and every path below it, each before those below it, siblings in their order.
/// @throws whatever the store throws; host::InterruptedException
std::vector<pm::MetadataPath> listPaths(const pm::MetadataManager& store, const pm::MetadataPath& top,
                                        Progress& progress);

}  // namespace operations
