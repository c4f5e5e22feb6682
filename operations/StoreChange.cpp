#include "operations/StoreChange.hpp"

#include <algorithm>
#include <map>
#include <optional>

#include "host/Interruption.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

namespace {

using NewNodes = std::map<pm::MetadataPath, std::shared_ptr<pm::MetadataNode>>;

/// Puts `node`, which stores only read, into the first of `batches` that has room for it: a map holds only one of
/// several paths with one text, and names with separators in them can make such paths.
void addNode(std::vector<NewNodes>& batches, const pm::MetadataPath& path, const NodePtr& node) {
    const auto shared = std::const_pointer_cast<pm::MetadataNode>(node);
    for (NewNodes& batch : batches) {
        if (batch.try_emplace(path, shared).second)
            return;
    }
    batches.emplace_back().emplace(path, shared);
}

/// Calls `visit` for every path of `tree`, each before those below it, with what `other` has at that path.
/// @param other null if it has nothing there
template <class Visit>
void walkBoth(const pm::MetadataPath& path, const PathTree& tree, const PathTree* other, const Visit& visit) {
    host::Interruption::throwIfRequested();
    visit(path, tree, other);
    std::map<pm::PathElement, const PathTree*> partners;
    if (other) {
        for (const PathTree& child : other->children)
            partners.emplace(child.step, &child);
    }
    for (const PathTree& child : tree.children) {
        const auto partner = partners.find(child.step);
        walkBoth(childPath(path, child.step), child, partner == partners.end() ? nullptr : partner->second, visit);
    }
}

}  // namespace

StoreChange findChange(const PathTree& before, const PathTree& after) {
    StoreChange change;
    std::vector<pm::MetadataPath> present;
    walkBoth({}, before, &after, [&](const pm::MetadataPath& path, const PathTree&, const PathTree* wanted) {
        present.push_back(path);
        if (!wanted)
            change.removed.push_back(path);
    });
    std::vector<pm::MetadataPath> paths;
    walkBoth({}, after, &before, [&](const pm::MetadataPath& path, const PathTree& wanted, const PathTree* known) {
        paths.push_back(path);
        if (!known)
            change.added.push_back(path);
        if (store_support::equalTrees(wanted.node.get(), known ? known->node.get() : nullptr))
            return;
        if (known)
            change.updated.push_back(path);
        change.nodes.emplace_back(path, wanted.node);
    });
    if (paths != present)
        change.paths = std::move(paths);
    return change;
}

void applyChange(pm::MetadataManager& store, const StoreChange& change, Interruptible interruptible) {
    const auto noteBatch = [interruptible] {
        // What follows belongs to it.
        if (interruptible == Interruptible::untilFirstBatch)
            host::Interruption::ignore();
    };
    if (change.renamed) {
        const auto& [path, element] = *change.renamed;
        dynamic_cast<pm::PathRenamer&>(store).renamePath(path, element);
        noteBatch();
    }
    std::vector<NewNodes> batches;
    for (const auto& [path, node] : change.nodes) {
        if (node)
            addNode(batches, path, node);
    }
    const bool removesNodes =
        std::any_of(change.nodes.begin(), change.nodes.end(), [](const auto& entry) { return !entry.second; });
    // Then the nodes wait for the paths, and nothing has been changed before.
    const bool areOne = change.paths && batches.size() == 1 && !removesNodes &&
                        dynamic_cast<const pm::WholeContentWriter*>(&store) != nullptr;
    std::optional<pm::WholeContentWrite> writing;
    if (areOne)
        writing.emplace(store);
    for (const NewNodes& nodes : batches) {
        store.setNodes(nodes);
        if (!areOne)
            noteBatch();
    }
    for (const auto& [path, node] : change.nodes) {
        if (node)
            continue;
        store.removeNode(path);
        noteBatch();
    }
    if (change.paths) {
        store.setPaths(*change.paths);
        noteBatch();
    }
    if (!change.gone.empty()) {
        store.removePaths(change.gone);
        noteBatch();
    }
}

namespace {

bool isSame(const StoreChange& a, const StoreChange& b) {
    return a.paths == b.paths &&
           std::equal(a.nodes.begin(), a.nodes.end(), b.nodes.begin(), b.nodes.end(),
                      [](const auto& mine, const auto& theirs) {
                          return mine.first == theirs.first &&
                                 store_support::equalTrees(mine.second.get(), theirs.second.get());
                      });
}

/// Where a node has gone that `store` has told of, it sets none, and adds no path, before it was asked for it again.
void askForGone(const pm::MetadataManager& store, const StoreChange& change) {
    const auto ask = [&](const pm::MetadataPath& path) {
        if (!store.hasPath(path))
            static_cast<void>(store.hasNode(path));
    };
    std::for_each(change.added.begin(), change.added.end(), ask);
    for (const auto& entry : change.nodes)
        ask(entry.first);
}

}  // namespace

StoreChange changeStore(pm::MetadataManager& store, const std::function<StoreChange()>& find) {
    // Whoever is overtaken that often has no chance against the others.
    constexpr int maximumAttempts = 1000;
    StoreChange change = find();
    bool isRepeated = false;
    for (int attempt = 1;; ++attempt) {
        try {
            applyChange(store, change);
            return change;
        } catch (const pm::MetadataWriteFailure&) {
            askForGone(store, change);
            StoreChange next = find();
            if (attempt == maximumAttempts || (isRepeated && isSame(change, next)))
                throw;
            isRepeated = isSame(change, next);
            change = std::move(next);
        }
    }
}

}  // namespace operations
