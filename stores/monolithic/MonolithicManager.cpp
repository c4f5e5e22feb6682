#include "stores/monolithic/MonolithicManager.hpp"

#include <algorithm>
#include <utility>

#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "stores/common/FileBatch.hpp"
#include "stores/common/PathXml.hpp"
#include "stores/common/StoreErrors.hpp"
#include "stores/common/TreeRules.hpp"

namespace stores::monolithic {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::MetadataWriteFailure;
using project::metadata::PathElement;
using project::metadata::raise;

const std::u16string monolithicName = u"monolithic";

namespace {

/// Adds `path` and its missing ancestors. @return the tree at `path`, and whether anything was added
std::pair<PathTree&, bool> addPathTo(PathTree& root, const MetadataPath& path) {
    PathTree* tree = &root;
    bool added = false;
    for (const PathElement& element : path.getPath()) {
        added = added || !tree->find(element);
        tree = &tree->add(element);
    }
    return {*tree, added};
}

void requireSeen(bool isSeen, const MetadataPath& path, const Path& file) {
    if (!isSeen) {
        raise<MetadataWriteFailure>(file.text(), u"somebody else has changed \"" + path.string() +
                                                     u"\" in it since it was read; read it again first");
    }
}

/// @return whether that is a change
bool setNodeIn(PathTree& root, const MetadataPath& path, const MetadataNode* node, const Path& file) {
    const auto [tree, added] = addPathTo(root, path);
    const bool isSame = node && tree.node ? equalTrees(*node, *tree.node) : node == tree.node.get();
    if (isSame)
        return added;
    requireSeen(!tree.node || !tree.isUnseen, path, file);
    tree.node = node ? std::make_shared<MetadataNodeSpecification>(*node) : nullptr;
    tree.isUnseen = false;
    return true;
}

/// @return whether that is a change
bool removePathFrom(PathTree& root, const MetadataPath& path, const Path& file) {
    const PathTree* const removed = root.find(path);
    requireSeen(!removed || isAllSeen(*removed), path, file);
    if (path.getPath().empty()) {
        const bool isEmpty = !root.node && root.getChildren().empty();
        root = PathTree();
        return !isEmpty;
    }
    // The parent is found for reading; what it leads to is ours to change.
    PathTree* parent = &root;
    for (std::size_t i = 0; parent && i + 1 < path.getPath().size(); ++i)
        parent = parent->find(path.getPath()[i]);
    if (!parent || !parent->find(path.getPath().back()))
        return false;
    parent->remove(path.getPath().back());
    return true;
}

/// The tree of `paths` and their ancestors, with the nodes that `old` has there.
PathTree arrange(const PathTree& old, const std::vector<MetadataPath>& paths) {
    PathTree arranged;
    for (const MetadataPath& path : paths) {
        if (path.getPath().empty())
            arranged.node = old.node;
        PathTree* to = &arranged;
        const PathTree* from = &old;
        for (const PathElement& element : path.getPath()) {
            from = from ? from->find(element) : nullptr;
            to = &to->add(element);
            if (from) {
                to->node = from->node;
                to->isUnseen = from->isUnseen;
            }
        }
    }
    return arranged;
}

/// What `arranged` does not have any more of `old` must have been seen.
void requireSeen(const PathTree& old, const PathTree* arranged, const MetadataPath& path, const Path& file) {
    const bool goes = !arranged || (old.node && !arranged->node);
    requireSeen(!goes || !old.isUnseen, path, file);
    for (const PathTree::Child& child : old.getChildren()) {
        std::vector<PathElement> elements = path.getPath();
        elements.push_back(child.element);
        requireSeen(child.tree, arranged ? arranged->find(child.element) : nullptr, MetadataPath(elements), file);
    }
}

}  // namespace

MonolithicManager::MonolithicManager(const Path& folder, JobRunner runJob)
    : folder_(folder), file_(folder / project::metadata::coreFileName()), runJob_(std::move(runJob)) {
    // What others change from now on has not been seen.
    load();
}

void MonolithicManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    change([&](PathTree& tree) { return setNodeIn(tree, path, &node, file_); });
}

void MonolithicManager::removeNode(const MetadataPath& path) {
    if (hasPath(path))
        change([&](PathTree& tree) { return setNodeIn(tree, path, nullptr, file_); });
}

void MonolithicManager::addPath(const MetadataPath& path) {
    change([&](PathTree& tree) { return addPathTo(tree, path).second; });
}

void MonolithicManager::removePath(const MetadataPath& path) {
    removePaths({path});
}

std::unique_ptr<MetadataNode> MonolithicManager::getNode(const MetadataPath& path) const {
    return hasNode(path) ? std::make_unique<MetadataNodeSpecification>(*load().find(path)->node) : nullptr;
}

void MonolithicManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    change([&](PathTree& tree) {
        bool changed = false;
        for (const auto& [path, node] : nodes)
            changed = setNodeIn(tree, path, node.get(), file_) || changed;
        return changed;
    });
}

void MonolithicManager::removePaths(const std::vector<MetadataPath>& paths) {
    if (!getFileVersion(file_))
        return;
    change([&](PathTree& tree) {
        bool changed = false;
        for (const MetadataPath& path : paths)
            changed = removePathFrom(tree, path, file_) || changed;
        return changed;
    });
}

bool MonolithicManager::hasNode(const MetadataPath& path) const {
    const PathTree* const tree = load().find(path);
    if (tree)
        tree->isUnseen = false;
    return tree && tree->node;
}

std::vector<MetadataPath> MonolithicManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    const PathTree* const tree = load().find(path);
    if (!tree)
        return children;
    for (const PathTree::Child& child : tree->getChildren()) {
        // Of a branch there is no more to know than that it exists.
        child.tree.isUnseen = child.tree.isUnseen && child.tree.node;
        std::vector<PathElement> elements = path.getPath();
        elements.push_back(child.element);
        children.emplace_back(std::move(elements));
    }
    return children;
}

bool MonolithicManager::hasPath(const MetadataPath& path) const {
    return load().find(path) != nullptr;
}

void MonolithicManager::setPaths(const std::vector<MetadataPath>& paths) {
    change([&](PathTree& tree) {
        PathTree arranged = arrange(tree, paths);
        if (isSameTree(arranged, tree))
            return false;
        requireSeen(tree, &arranged, MetadataPath(), file_);
        tree = std::move(arranged);
        return true;
    });
}

std::vector<project::metadata::MetadataDamage> MonolithicManager::findDamage() const {
    load();
    return damage_;
}

void MonolithicManager::change(const Edit& edit) {
    PathTree tree = load().clone();
    if (!edit(tree) && version_)
        return;
    requireSound();
    FolderLock lock(folder_);
    if (getFileVersion(file_) != version_) {
        // Somebody else was faster.
        tree = load().clone();
        if (!edit(tree) && version_)
            return;
        requireSound();
    }
    save(std::move(tree), lock);
}

const PathTree& MonolithicManager::load() const {
    const auto version = getFileVersion(file_);
    if (tree_ && version == version_)
        return *tree_;
    std::vector<project::metadata::MetadataDamage> damage;
    PathTree tree;
    if (version)
        tree = fromXml(*project::metadata::readFromFile(file_), file_, damage);
    if (tree_)
        markUnseen(tree, &*tree_);
    std::for_each(damage.begin(), damage.end(), logDamage);
    tree_ = std::move(tree);
    version_ = version;
    damage_ = std::move(damage);
    return *tree_;
}

void MonolithicManager::requireSound() const {
    if (!damage_.empty()) {
        raise<MetadataWriteFailure>(
            file_.text(), u"it is damaged, and not overwritten before it is repaired: " + damage_.front().problem);
    }
}

void MonolithicManager::save(PathTree tree, FolderLock& lock) {
    const std::unique_ptr<MetadataNode> xml = toXml(tree);
    requireReadable(*xml, 0, file_);

    FileBatch batch;
    batch.folder = folder_;
    batch.filesToWrite = {file_};
    batch.write = [&](std::size_t /*index*/, const Path& staged) {
        // An empty store is as the library makes a core file.
        project::metadata::writeToFile(*xml, staged, xml->getChildNodes().empty());
        if (needsProof(*xml))
            requireReadsBack(*xml, staged, file_);
    };
    runJob_(project::metadata::FileJob(batch.filesToWrite, {}, [&] {
        commit(batch, lock);
        version_ = getFileVersion(file_);
        tree_ = std::move(tree);
        lock.release();
    }));
}

}  // namespace stores::monolithic
