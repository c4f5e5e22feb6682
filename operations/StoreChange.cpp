#include "operations/StoreChange.hpp"

#include <algorithm>
#include <iterator>
#include <map>

#include "host/Interruption.hpp"
#include "operations/NodeEdit.hpp"

namespace operations {

namespace pm = project::metadata;

namespace {

using Nodes = std::map<pm::MetadataPath, std::shared_ptr<pm::MetadataNode>>;

/// Puts `node` into the first of `batches` that has room for it: a map holds only one of several paths with one text,
/// and names with separators in them can make such paths.
void addNode(std::vector<Nodes>& batches, const pm::MetadataPath& path, const std::shared_ptr<pm::MetadataNode>& node) {
    for (Nodes& batch : batches) {
        if (batch.try_emplace(path, node).second)
            return;
    }
    batches.emplace_back().emplace(path, node);
}

bool haveSameNode(const std::shared_ptr<pm::MetadataNode>& a, const std::unique_ptr<pm::MetadataNode>& b) {
    return a && b ? equalNodes(*a, *b) : !a && !b;
}

}  // namespace

std::vector<pm::MetadataPath> listPaths(const pm::MetadataManager& store, const pm::MetadataPath& top,
                                        Progress& progress) {
    std::vector<pm::MetadataPath> paths;
    std::vector<pm::MetadataPath> open{top};
    while (!open.empty()) {
        paths.push_back(std::move(open.back()));
        open.pop_back();
        std::vector<pm::MetadataPath> children = store.getChildren(paths.back());
        std::move(children.rbegin(), children.rend(), std::back_inserter(open));
        progress.advance();
    }
    return paths;
}

StoreChange findMirrorChange(const pm::MetadataManager& source, const pm::MetadataManager& destination,
                             Progress& progress) {
    StoreChange change;
    std::vector<pm::MetadataPath> wanted = listPaths(source, {}, progress);
    const std::vector<pm::MetadataPath> present = listPaths(destination, {}, progress);
    const PathSet presentSet(present.begin(), present.end());
    for (const pm::MetadataPath& path : wanted) {
        progress.advance();
        const bool isPresent = presentSet.count(path) > 0;
        std::shared_ptr<pm::MetadataNode> node = source.hasNode(path) ? source.getNode(path) : nullptr;
        if (!isPresent)
            change.added.push_back(path);
        if (haveSameNode(node, isPresent ? destination.getNode(path) : nullptr))
            continue;
        if (isPresent)
            change.updated.push_back(path);
        change.nodes.emplace_back(path, std::move(node));
    }
    const PathSet wantedSet(wanted.begin(), wanted.end());
    std::copy_if(present.begin(), present.end(), std::back_inserter(change.removed),
                 [&](const pm::MetadataPath& path) { return wantedSet.count(path) == 0; });
    if (wanted != present)
        change.paths = std::move(wanted);
    return change;
}

void applyChange(pm::MetadataManager& store, const StoreChange& change, Interruptible interruptible) {
    const auto noteBatch = [interruptible] {
        // What follows belongs to it.
        if (interruptible == Interruptible::untilFirstBatch)
            host::Interruption::ignore();
    };
    std::vector<Nodes> batches;
    for (const auto& [path, node] : change.nodes) {
        if (node)
            addNode(batches, path, node);
    }
    for (const Nodes& nodes : batches) {
        store.setNodes(nodes);
        noteBatch();
    }
    if (change.paths) {
        store.setPaths(*change.paths);
        noteBatch();
    }
    for (const auto& [path, node] : change.nodes) {
        if (node)
            continue;
        store.removeNode(path);
        noteBatch();
    }
}

}  // namespace operations
