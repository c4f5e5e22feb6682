#include "operations/TreeUpdate.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "operations/Progress.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/RepeatableRead.hpp"

namespace operations {

namespace {

class TreeUpdater {
public:
    TreeUpdater(const pm::MetadataManager& store, const pm::PathFileLister& files)
        : store_(store), files_(files), reading_(store) {}

    /// Brings what is below `path` up to date in `now`.
    /// @param folder of the path
    /// @param before, after get the part of it that was looked at
    void update(const pm::MetadataPath& path, const host::Path& folder, const ChangedEntry& changes, PathTree& now,
                PathTree& before, PathTree& after) {
        std::map<pm::PathElement, std::size_t> places;
        for (const PathTree& child : now.children) {
            places.emplace(child.step, before.children.size());
            before.children.push_back({child.step, child.node, {}, {}});
        }
        std::vector<PathTree> children;
        std::map<std::string, const ChangedEntry*> others;  // that belong to no path, and may be damaged ones
        for (const auto& [name, change] : changes.inside)
            others.emplace(name, &change);
        for (const pm::MetadataPath& childPath : store_.getChildren(path)) {
            const host::Path file = files_.getNodeFile(childPath);
            const host::Path childFolder = files_.getChildFolder(childPath);
            const auto changedFile = changes.inside.find(file.fileName().accessName());
            const auto changedFolder = changes.inside.find(childFolder.fileName().accessName());
            const auto place = places.find(childPath.getPath().back());
            const bool isTouched = changedFile != changes.inside.end();
            const bool hasChangedInside = changedFolder != changes.inside.end();
            if (place == places.end() || (hasChangedInside && changedFolder->second.isWhole)) {
                PathTree whole = readSubtree(store_, childPath, progress_);
                children.push_back(*findPath(whole, childPath));
                after.children.push_back(children.back());
                continue;
            }
            PathTree& child = children.emplace_back(std::move(now.children[place->second]));
            if (isTouched)
                child.node = store_.getNode(childPath);
            after.children.push_back({child.step, child.node, {}, {}});
            if (hasChangedInside) {
                update(childPath, childFolder, changedFolder->second, child, before.children[place->second],
                       after.children.back());
                others.erase(changedFolder->first);
            }
            places.erase(place);
        }
        // What has gone, or was read as a whole.
        for (const auto& [step, place] : places)
            before.children[place] = std::move(now.children[place]);
        now.children = std::move(children);
        for (const auto& [name, change] : others)
            isDamaged_ = isDamaged_ || files_.hasLossIn(folder / host::Path::fromAccessName(name));
    }

    bool isDamaged() const { return isDamaged_; }

private:
    const pm::MetadataManager& store_;
    const pm::PathFileLister& files_;
    const pm::RepeatableRead reading_;
    Progress progress_;
    bool isDamaged_ = false;
};

}  // namespace

std::optional<TreeUpdate> updateTree(const PathTree& tree, const pm::MetadataManager& store, const host::Path& folder,
                                     const ChangedEntry& changes) {
    const auto* const files = dynamic_cast<const pm::PathFileLister*>(&store);
    if (!files)
        return std::nullopt;
    TreeUpdater updater(store, *files);
    TreeUpdate update{tree, {tree.step, tree.node, {}, {}}, {}};
    // In any case: the store completes a change that was interrupted, if there is one.
    update.now.node = store.getNode({});
    update.after = {tree.step, update.now.node, {}, {}};
    updater.update({}, folder, changes, update.now, update.before, update.after);
    return updater.isDamaged() ? std::nullopt : std::optional(std::move(update));
}

}  // namespace operations
