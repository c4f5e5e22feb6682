#include "stores/monolithic/MonolithicManager.hpp"

#include <algorithm>
#include <new>
#include <utility>

#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/Disk.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/Renaming.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/StoreFiles.hpp"
#include "store_support/ToldNodes.hpp"
#include "store_support/TreeRules.hpp"
#include "store_support/XmlFile.hpp"

namespace stores::monolithic {

using project::metadata::getShared;
using project::metadata::keepNode;

const std::u16string& monolithicName = *new std::u16string(u"monolithic");

namespace {

bool isBorrowed(const std::shared_ptr<const MetadataNode>& node) {
    return node && node.use_count() == 0;
}

/// Keeps the nodes that `tree` has borrowed. Only parts that nobody else shares have any.
void keepBorrowed(const SharedTree& tree) {
    if (isBorrowed(tree.node))
        tree.node = keepNode(*tree.node);
    for (const SharedTree::Child& child : tree.getChildren())
        keepBorrowed(child.tree);
}

void requireSeen(bool isSeen, const MetadataPath& path, const Path& file) {
    if (!isSeen) {
        raise<MetadataWriteFailure>(file.text(), u"somebody else has changed \"" + path.string() +
                                                     u"\" in it since it was read; read it again first");
    }
}

/// Adds `path` and its missing ancestors. @return the tree at `path`
SharedTree& addPathTo(Draft& draft, const MetadataPath& path, const Path& file) {
    draft.makesProject = true;
    SharedTree* tree = &draft.tree;
    for (const PathElement& element : path.getPath()) {
        if (SharedTree* const existing = tree->own(element)) {
            tree = existing;
            continue;
        }
        requireStorable(path, file);
        tree = &tree->add(element);
        draft.isChanged = true;
    }
    return *tree;
}

/// @param node null to remove the node
void setNodeIn(Draft& draft, const MetadataPath& path, const MetadataNode* newNode, const Path& file) {
    auto node = borrowNode(newNode, file);
    SharedTree& tree = addPathTo(draft, path, file);
    if (equalTrees(node.get(), tree.node.get()))
        return;
    requireSeen(!tree.node || !tree.isUnseen, path, file);
    if (node) {
        const int depth = static_cast<int>(path.getPath().size()) + 2;  // below the elements "Project" and "Node"
        requireReadable(getShared(*node), depth, file);
    }
    tree.node = std::move(node);
    tree.isUnseen = false;
    draft.isChanged = true;
}

void setNodesIn(Draft& draft, const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes, const Path& file) {
    for (const auto& [path, node] : nodes)
        setNodeIn(draft, path, node.get(), file);
}

void removePathFrom(Draft& draft, const MetadataPath& path, const Path& file) {
    SharedTree& root = draft.tree;
    const SharedTree* const removed = root.find(path);
    requireSeen(!removed || isAllSeen(*removed), path, file);
    if (path.getPath().empty()) {
        draft.isChanged = draft.isChanged || root.node || !root.getChildren().empty();
        root = SharedTree();
        return;
    }
    if (!removed)
        return;
    SharedTree* parent = &root;
    for (std::size_t i = 0; i + 1 < path.getPath().size(); ++i)
        parent = parent->own(path.getPath()[i]);
    parent->remove(path.getPath().back());
    draft.isChanged = true;
}

void renameIn(Draft& draft, const MetadataPath& path, const PathElement& element, const Path& file) {
    const MetadataPath target = replaceLeaf(path, element);
    const SharedTree* const renamed = draft.tree.find(path);
    const Renaming found{renamed != nullptr, renamed && !renamed->getChildren().empty(),
                         draft.tree.find(target) != nullptr};
    if (!requireRenamable(path, target, found, file))
        return;
    requireSeen(!renamed->isUnseen, path, file);
    SharedTree* parent = &draft.tree;
    for (std::size_t i = 0; i + 1 < path.getPath().size(); ++i)
        parent = parent->own(path.getPath()[i]);
    parent->rename(path.getLeaf(), element);
    draft.isChanged = true;
}

/// What `arranged` does not have any more of `old` must have been seen.
/// @param steps to `old`; the same again afterwards
void requireSeen(const SharedTree& old, const SharedTree* arranged, std::vector<PathElement>& steps, const Path& file) {
    const bool goes = !arranged || (old.node && !arranged->node);
    if (goes && old.isUnseen)
        requireSeen(false, MetadataPath(steps), file);
    for (const SharedTree::Child& child : old.getChildren()) {
        steps.push_back(child.element);
        requireSeen(child.tree, arranged ? arranged->find(child.element) : nullptr, steps, file);
        steps.pop_back();
    }
}

/// The paths `paths` and their ancestors, with the nodes that `old` has there.
Draft arrange(const SharedTree& old, const std::vector<MetadataPath>& paths, const Path& file) {
    Draft draft;
    draft.makesProject = true;
    draft.tree.isUnseen = old.isUnseen;
    for (const MetadataPath& path : paths) {
        if (path.getPath().empty())
            draft.tree.node = old.node;
        SharedTree* to = &draft.tree;
        const SharedTree* from = &old;
        for (const PathElement& element : path.getPath()) {
            from = from ? from->find(element) : nullptr;
            to = &to->add(element);
            if (from) {
                to->node = from->node;
                to->isUnseen = from->isUnseen;
            } else {
                requireStorable(path, file);
            }
        }
    }
    draft.isChanged = !isSameTree(draft.tree, old);
    std::vector<PathElement> steps;
    requireSeen(old, &draft.tree, steps, file);
    return draft;
}

/// Makes a draft by `edit` of the old content.
template <class Edit>
auto edited(const Edit& edit) {
    return [&edit](const SharedTree& old) {
        Draft draft;
        draft.tree = old;
        edit(draft);
        return draft;
    };
}

}  // namespace

MonolithicManager::MonolithicManager(const Path& folder, JobRunner runJob)
    : folder_(folder), file_(folder / coreFileName()), runJob_(std::move(runJob)) {
    // What others change from now on has not been seen.
    load();
}

void MonolithicManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    change(edited([&](Draft& draft) { setNodeIn(draft, path, &node, file_); }));
}

void MonolithicManager::removeNode(const MetadataPath& path) {
    change(edited([&](Draft& draft) {
        const SharedTree* const tree = draft.tree.find(path);
        if (tree && tree->node)
            setNodeIn(draft, path, nullptr, file_);
    }));
}

void MonolithicManager::addPath(const MetadataPath& path) {
    change(edited([&](Draft& draft) { addPathTo(draft, path, file_); }));
}

std::unique_ptr<MetadataNode> MonolithicManager::getNode(const MetadataPath& path) const {
    const SharedTree* const tree = look(path);
    if (!tree)
        return nullptr;
    if (const auto problem = tree->getProblem())
        raise<MetadataReadFailure>(file_.text(), *problem);
    return tree->node ? project::metadata::copyKeptNode(tree->node) : nullptr;
}

void MonolithicManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    if (content_)
        putAside(nodes);
    else
        change(edited([&](Draft& draft) { setNodesIn(draft, nodes, file_); }));
}

void MonolithicManager::putAside(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    Draft draft;
    draft.tree = content_->tree ? *content_->tree : load();
    requireSound();
    if (!content_->tree)
        content_->basis = watch_.getVersion();
    setNodesIn(draft, nodes, file_);
    keepBorrowed(draft.tree);
    content_->tree = std::move(draft.tree);
}

void MonolithicManager::removePaths(const std::vector<MetadataPath>& paths) {
    change(edited([&](Draft& draft) {
        for (const MetadataPath& path : paths)
            removePathFrom(draft, path, file_);
    }));
}

void MonolithicManager::renamePath(const MetadataPath& path, const PathElement& element) {
    change(edited([&](Draft& draft) { renameIn(draft, path, element, file_); }));
}

bool MonolithicManager::hasNode(const MetadataPath& path) const {
    const SharedTree* const tree = look(path);
    return tree && tree->hasNode();
}

std::vector<MetadataPath> MonolithicManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    const SharedTree* const tree = load().find(path);
    if (!tree)
        return children;
    for (const SharedTree::Child& child : tree->getChildren()) {
        // Of a branch there is no more to know than that it exists.
        child.tree.isUnseen = child.tree.isUnseen && child.tree.node;
        std::vector<PathElement> elements;
        elements.reserve(path.getPath().size() + 1);
        elements = path.getPath();
        elements.push_back(child.element);
        children.emplace_back(std::move(elements));
    }
    return children;
}

bool MonolithicManager::hasPath(const MetadataPath& path) const {
    return load().find(path) != nullptr;
}

void MonolithicManager::setPaths(const std::vector<MetadataPath>& paths) {
    const auto content = std::exchange(content_, std::nullopt);
    change([&](const SharedTree& old) {
        if (!content || !content->tree)
            return arrange(old, paths, file_);
        if (watch_.getVersion() != content->basis)
            raise<MetadataWriteFailure>(file_.text(), u"it has been changed since the nodes were set for these paths");
        Draft draft = arrange(*content->tree, paths, file_);
        draft.isChanged = !isSameTree(draft.tree, old);
        return draft;
    });
}

std::vector<MetadataDamage> MonolithicManager::findDamage() const {
    load();
    auto damage = damage_;
    if (auto journal = findJournalDamage(folder_))
        damage.push_back(*std::move(journal));
    return damage;
}

std::vector<project::metadata::StoreFile> MonolithicManager::listFiles() const {
    return listStoreFiles(folder_, {});
}

void MonolithicManager::change(const Edit& edit) {
    Draft draft = edit(load());
    const auto isNeeded = [&] { return draft.isChanged || (draft.makesProject && !watch_.getVersion()); };
    if (!isNeeded())
        return;
    requireSound();
    FolderLock lock(folder_);
    requireMetadataType(folder_, monolithicName);
    if (getFileVersion(file_) != watch_.getVersion()) {
        // Somebody else was faster.
        draft = edit(load());
        if (!isNeeded())
            return;
        requireSound();
    }
    requireNothingGone(draft);
    save(std::move(draft), lock);
}

const SharedTree* MonolithicManager::look(const MetadataPath& path) const {
    const SharedTree* const tree = load().find(path);
    if (tree)
        tree->isUnseen = false;
    if (!gone_.empty())
        gone_.erase(path.getPath());
    return tree;
}

SharedTree& MonolithicManager::load() const {
    if (tree_ && watch_.isUnchanged())
        return *tree_;
    const auto status = findStatus(file_);
    const XmlFile xml = status ? readXmlFile(file_, *status, XmlExtent::aroundRefused) : XmlFile{};
    if (!xml.root && xml.version)
        raise<MetadataReadFailure>(file_.text(), xml.problem);
    std::vector<MetadataDamage> damage;
    SharedTree tree;
    if (xml.root)
        tree = fromXml(*xml.root, Elements::go, xml.lacks, file_, damage);
    if (!xml.foreign.empty())
        damage.push_back({file_, xml.foreign, false, true});
    if (tree_ || hasLostSight_)
        markUnseen(tree, tree_ ? &*tree_ : nullptr);
    if (tree_) {
        std::vector<PathElement> steps;
        findGone(*tree_, &tree, steps, gone_);
    }
    std::for_each(damage.begin(), damage.end(), reportDamage);
    tree_ = std::move(tree);
    hasLostSight_ = false;
    watch_ = FileWatch(file_, xml.version);
    damage_ = std::move(damage);
    return *tree_;
}

void MonolithicManager::requireSound() const {
    if (damage_.empty())
        return;
    const MetadataDamage& first = damage_.front();
    raise<MetadataWriteFailure>(first.file.text(),
                                first.isForeign
                                    ? first.problem
                                    : u"it is damaged, and not overwritten before it is repaired: " + first.problem);
}

void MonolithicManager::requireNothingGone(const Draft& draft) const {
    for (const std::vector<PathElement>& steps : gone_) {
        const SharedTree* const now = tree_->find(steps);
        const SharedTree* const then = draft.tree.find(steps);
        if (then && (!now || (then->node && !now->hasNode()))) {
            raise<MetadataWriteFailure>(
                file_.text(), u"the node of \"" + MetadataPath(steps).string() + u"\" in it " + removedUnseen);
        }
    }
}

void MonolithicManager::save(Draft draft, FolderLock& lock) {
    FileBatch batch;
    batch.folder = folder_;
    batch.filesToWrite = {file_};
    batch.write = [&](std::size_t /*index*/, const Path& staged) {
        // An empty store is as the library makes a core file.
        const bool isEmpty = !draft.tree.node && draft.tree.getChildren().empty();
        writeProved([&](auto& sink) { tellXml(draft.tree, sink); }, staged, isEmpty, file_);
    };
    runJob_(project::metadata::FileJob(batch.filesToWrite, {}, [&] {
        commit(batch, lock);
        watch_ = FileWatch(file_, getFileVersion(file_));
        // The old nodes go before the new ones are copied: there are never both.
        tree_.reset();
        try {
            keepBorrowed(draft.tree);
            tree_ = std::move(draft.tree);
        } catch (const std::bad_alloc&) {
            // The file is on disk, and is read again.
            hasLostSight_ = true;
        }
        lock.release();
    }));
}

}  // namespace stores::monolithic
