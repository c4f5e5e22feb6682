#include "stores/monolithic/MonolithicManager.hpp"

#include <algorithm>
#include <utility>

#include "project/metadata/CoreFile.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "stores/common/FileBatch.hpp"
#include "stores/common/PathXml.hpp"
#include "stores/common/TreeRules.hpp"

namespace stores::monolithic {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::PathElement;

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

/// @return whether that is a change
bool setNodeIn(PathTree& root, const MetadataPath& path, const MetadataNode* node) {
    const auto [tree, added] = addPathTo(root, path);
    const bool isSame = node && tree.node ? equalTrees(*node, *tree.node) : node == tree.node.get();
    if (!isSame)
        tree.node = node ? std::make_shared<MetadataNodeSpecification>(*node) : nullptr;
    return added || !isSame;
}

/// @return whether that is a change
bool removePathFrom(PathTree& root, const MetadataPath& path) {
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
std::unique_ptr<PathTree> arrange(const PathTree& old, const std::vector<MetadataPath>& paths) {
    auto arranged = std::make_unique<PathTree>();
    for (const MetadataPath& path : paths) {
        if (path.getPath().empty())
            arranged->node = old.node;
        PathTree* to = arranged.get();
        const PathTree* from = &old;
        for (const PathElement& element : path.getPath()) {
            from = from ? from->find(element) : nullptr;
            to = &to->add(element);
            to->node = from ? from->node : nullptr;
        }
    }
    return arranged;
}

}  // namespace

MonolithicManager::MonolithicManager(const Path& folder, JobRunner runJob)
    : folder_(folder), file_(folder / project::metadata::coreFileName()), runJob_(std::move(runJob)) {}

void MonolithicManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    change([&](auto& tree) { return setNodeIn(*tree, path, &node); });
}

void MonolithicManager::removeNode(const MetadataPath& path) {
    if (hasNode(path))
        change([&](auto& tree) { return setNodeIn(*tree, path, nullptr); });
}

void MonolithicManager::addPath(const MetadataPath& path) {
    change([&](auto& tree) { return addPathTo(*tree, path).second; });
}

void MonolithicManager::removePath(const MetadataPath& path) {
    removePaths({path});
}

std::unique_ptr<MetadataNode> MonolithicManager::getNode(const MetadataPath& path) const {
    const PathTree* const tree = load().find(path);
    return tree && tree->node ? std::make_unique<MetadataNodeSpecification>(*tree->node) : nullptr;
}

void MonolithicManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    change([&](auto& tree) {
        bool changed = false;
        for (const auto& [path, node] : nodes)
            changed = setNodeIn(*tree, path, node.get()) || changed;
        return changed;
    });
}

void MonolithicManager::removePaths(const std::vector<MetadataPath>& paths) {
    if (!getFileVersion(file_))
        return;
    change([&](auto& tree) {
        bool changed = false;
        for (const MetadataPath& path : paths)
            changed = removePathFrom(*tree, path) || changed;
        return changed;
    });
}

bool MonolithicManager::hasNode(const MetadataPath& path) const {
    const PathTree* const tree = load().find(path);
    return tree && tree->node;
}

std::vector<MetadataPath> MonolithicManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    const PathTree* const tree = load().find(path);
    if (!tree)
        return children;
    for (const PathTree::Child& child : tree->getChildren()) {
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
    change([&](auto& tree) {
        auto arranged = arrange(*tree, paths);
        const bool changed = !isSameTree(*arranged, *tree);
        tree = std::move(arranged);
        return changed;
    });
}

void MonolithicManager::change(const Edit& edit) {
    load();
    // What is in memory counts again only once it is on disk.
    std::unique_ptr<PathTree> tree = std::move(tree_);
    if (edit(tree) || !version_)
        save(*tree);
    version_ = getFileVersion(file_);
    tree_ = std::move(tree);
}

const PathTree& MonolithicManager::load() const {
    const auto version = getFileVersion(file_);
    if (tree_ && version == version_)
        return *tree_;
    tree_ = version ? fromXml(*project::metadata::readFromFile(file_), file_) : std::make_unique<PathTree>();
    version_ = version;
    return *tree_;
}

void MonolithicManager::save(const PathTree& tree) const {
    const std::unique_ptr<MetadataNode> xml = toXml(tree);
    requireReadable(*xml, 0, file_);
    const bool isEmpty = xml->getChildNodes().empty();

    FileBatch batch;
    batch.folder = folder_;
    batch.filesToWrite = {file_};
    batch.write = [&](std::size_t /*index*/, const Path& staged) { writeStaged(*xml, isEmpty, staged); };
    runJob_(project::metadata::FileJob(batch.filesToWrite, {}, [&batch] { commit(batch); }));
}

void MonolithicManager::writeStaged(const MetadataNode& xml, bool isEmpty, const Path& staged) const {
    if (isEmpty) {
        project::metadata::CoreMetadataHandler(project::metadata::getParentFolder(staged), monolithicName,
                                               projectElementName)
            .createCoreMetadata();
        return;
    }
    project::metadata::writeToFile(xml, staged, false);
    if (needsProof(xml))
        requireReadsBack(xml, staged, file_);
}

}  // namespace stores::monolithic
