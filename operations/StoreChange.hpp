/// Changes of a whole store, worked out before anything is written.
///
/// One thread at a time, as the stores.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "operations/Library.hpp"
#include "operations/MetadataTree.hpp"

namespace operations {

/// Tells apart paths with one text, as the order of the library does not.
struct BySteps {
    bool operator()(const pm::MetadataPath& a, const pm::MetadataPath& b) const { return a.getPath() < b.getPath(); }
};

using PathSet = std::set<pm::MetadataPath, BySteps>;

/// A value type. What it adds, updates and removes is for people; the rest is what is done.
struct StoreChange {
    std::vector<pm::MetadataPath> added;
    std::vector<pm::MetadataPath> updated;  ///< have another node, or none any more
    std::vector<pm::MetadataPath> removed;  ///< with all that lie below them, each listed

    /// A path without paths below it, and what becomes of it at its place, for a store that is a `PathRenamer`; no
    /// value if none is renamed. It is among `added` and `removed` too, and is all there is to do.
    std::optional<std::pair<pm::MetadataPath, pm::PathElement>> renamed;

    /// What is to be stored at which path; null: the node there goes.
    std::vector<std::pair<pm::MetadataPath, NodePtr>> nodes;

    /// The whole content in its order, as `MetadataManager::setPaths` takes it; no value if `nodes` are all.
    std::optional<std::vector<pm::MetadataPath>> paths;

    /// What is removed, by the tops, if `paths` does not say it.
    std::vector<pm::MetadataPath> gone;

    /// Whether the store is already as it is to be.
    bool isEmpty() const { return !renamed && nodes.empty() && !paths && gone.empty(); }
};

/// What makes a store that holds `before` hold exactly `after`: all paths, their order, all nodes, also the root's.
/// @throws host::InterruptedException
StoreChange findChange(const PathTree& before, const PathTree& after);

/// When `applyChange` heeds the user's wish to stop.
enum class Interruptible { untilFirstBatch, always };

/// Makes `change`: new and changed nodes first, and paths that go last. It takes one batch if it only changes nodes or
/// only paths; two if it does both, or one in a store that is a `WholeContentWriter`; and one more for each node that
/// goes, and for paths that have one text.
/// @param interruptible `always` only for a store that nobody will miss
/// @throws whatever the store throws; host::InterruptedException, by default only while nothing has been changed
void applyChange(pm::MetadataManager& store, const StoreChange& change,
                 Interruptible interruptible = Interruptible::untilFirstBatch);

/// Makes the change that `find` works out from what `store` holds. As long as that fails since somebody else has
/// changed the same meanwhile, it is worked out anew: until `find` has the same answer for the second time.
/// @param find must read what it is about from `store`
/// @return the change that was made
/// @throws as `applyChange` and `find`; after an error nothing has been changed if the change takes one batch
StoreChange changeStore(pm::MetadataManager& store, const std::function<StoreChange()>& find);

}  // namespace operations
