#include "stores/fixed_path/PathFileChange.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "host/Interruption.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/Disk.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/Renaming.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;
using project::metadata::MetadataWriteFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using store_support::borrowNode;
using store_support::equalTrees;
using store_support::FileBatch;
using store_support::FolderLock;
using store_support::getFileVersion;
using store_support::JobRunner;
using store_support::removedUnseen;
using store_support::requireReadable;
using store_support::requireStorable;
using store_support::WantedTree;

namespace {

/// How many elements lie above a node in its file: the path's own and "Node".
constexpr int nodeDepth = 2;

[[noreturn]] void raiseDisturbance(const Path& file) {
    raise<MetadataWriteFailure>(file.text(), u"somebody else is changing it just now");
}

/// @param content what the file says now, which may have been mended or removed since its damage was met; null for that
[[noreturn]] void raiseDamage(const Path& file, const PathFilePtr& content) {
    if (!content || !content->damage)
        raiseDisturbance(file);
    const std::u16string& problem = content->damage->problem;
    raise<MetadataWriteFailure>(
        file.text(), content->isBroken()
                         ? u"it is damaged, and neither overwritten nor removed before it is repaired: " + problem
                         : problem);
}

/// Whether the file tells which path it belongs to.
bool isNamed(const Path& file, const PathFile& content) {
    return file.fileName().text() == nodeFileName(content.element);
}

/// The name of the folder that goes with the file `name`; of a folder's name, nothing that could be one.
std::u16string_view stem(const Path& name) {
    const std::u16string_view text = name.text();
    return project::metadata::ends_with(name.text(), nodeFileExtension)
               ? text.substr(0, text.size() - nodeFileExtension.size())
               : std::u16string_view();
}

/// Of what a file says now, or will say.
struct Sibling {
    const PathElement* element;
    std::optional<Rank> rank;  // none if it does not exist
};

/// Siblings that share a rank are in order by their elements.
bool areInOrder(const std::vector<Sibling>& siblings) {
    for (std::size_t i = 0; i < siblings.size(); ++i) {
        if (!siblings[i].rank)
            return false;
        if (i == 0)
            continue;
        const Sibling& before = siblings[i - 1];
        if (!(*before.rank < *siblings[i].rank ||
              (*before.rank == *siblings[i].rank && *before.element < *siblings[i].element))) {
            return false;
        }
    }
    return true;
}

}  // namespace

PathFileChange::PathFileChange(PathFiles& files, const store_support::ToldNodes& told, Mode mode)
    : files_(files),
      told_(told),
      mode_(mode),
      lastFolder_(rootItem, files.getFolder()),
      lastFile_(rootItem, files.locate(MetadataPath()).file) {
    items_.push_back({rootItem, noElement, {}});
    look(rootItem, files_.readForChange(files_.locate(MetadataPath()).file, Extent::place));
}

void PathFileChange::look(Index index, const PathFilePtr& content) {
    Item& item = items_[index];
    item.exists = content != nullptr;
    item.isDamaged = content && content->damage;
    item.hasNode = content && content->hasNode;
    item.keepsNode = item.hasNode;
    item.rank = content ? content->rank : Rank();
    item.old = content ? content->version : store_support::FileVersion{};
    lastContent_ = {index, content};
}

PathFileChange::Index PathFileChange::find(Index parent, const PathElement& element) {
    const auto known = index_.find(store_support::ChildStep{parent, &element});
    if (known != index_.end())
        return known->second;
    Path file = getFolder(parent) / nodeFileName(element);
    const PathFilePtr content = hasFolder(parent) ? files_.readForChange(file, Extent::place) : nullptr;
    const Index index = items_.size();
    items_.push_back({parent, element, {}});
    lastFile_ = {index, std::move(file)};
    look(index, content);
    index_.emplace(store_support::ChildStep{parent, &items_[index].element}, index);
    return index;
}

PathFileChange::Index PathFileChange::follow(std::size_t depth, const PathElement& element) {
    if (depth + 1 >= walk_.size() || !(items_[walk_[depth + 1]].element == element)) {
        walk_.resize(depth + 1);
        walk_.push_back(find(walk_.back(), element));
    }
    return walk_[depth + 1];
}

std::optional<PathFileChange::Index> PathFileChange::find(const MetadataPath& path) {
    Index index = rootItem;
    std::size_t depth = 0;
    for (const PathElement& element : path.getPath())
        index = follow(depth++, element);
    return items_[index].isThere() ? std::optional(index) : std::nullopt;
}

bool PathFileChange::hasFolder(Index index) {
    Item& item = items_[index];
    if (item.exists || index == rootItem)
        return true;
    if (!item.hasFolder)
        item.hasFolder = store_support::exists(getFolder(index));
    return *item.hasFolder;
}

const Path& PathFileChange::getFolder(Index index) {
    if (lastFolder_.first == index)
        return lastFolder_.second;
    std::vector<Index> steps;
    for (Index step = index; step != rootItem; step = items_[step].parent)
        steps.push_back(step);
    Path folder = files_.getFolder();
    for (auto step = steps.rbegin(); step != steps.rend(); ++step)
        folder /= nodeFolderName(items_[*step].element);
    lastFolder_ = {index, std::move(folder)};
    return lastFolder_.second;
}

MetadataPath PathFileChange::getPath(Index index) const {
    std::vector<PathElement> elements;
    for (; index != rootItem; index = items_[index].parent)
        elements.push_back(items_[index].element);
    std::reverse(elements.begin(), elements.end());
    return MetadataPath(std::move(elements));
}

const Path& PathFileChange::getFile(Index index) {
    if (lastFile_.first != index) {
        const bool isRoot = index == rootItem;
        lastFile_ = {index, isRoot ? files_.locate(MetadataPath()).file
                                   : getFolder(items_[index].parent) / nodeFileName(items_[index].element)};
    }
    return lastFile_.second;
}

std::shared_ptr<const MetadataNode> PathFileChange::readNode(Index index) {
    if (!items_[index].hasNode)
        return nullptr;
    if (lastContent_.first == index && lastContent_.second && lastContent_.second->node)
        return lastContent_.second->node;
    const PathFilePtr content = files_.readForChange(getFile(index), Extent::whole);
    if (!content || content->version != items_[index].old)
        raiseDisturbance(getFile(index));
    return content->node;
}

void PathFileChange::write(Index index) {
    Item& item = items_[index];
    if (item.isDamaged) {
        const Path file = getFile(index);
        raiseDamage(file, files_.readForChange(file, Extent::place));
    }
    if (!item.isWritten)
        writes_.push_back(index);
    item.isWritten = true;
}

Rank PathFileChange::makeLastRank(Index parent) {
    auto last = lastRanks_.find(parent);
    if (last == lastRanks_.end())
        last = lastRanks_.emplace(parent, files_.findLastRank(getFolder(parent))).first;
    last->second = makeRanks(last->second, {}, 1).front();
    return last->second;
}

PathFileChange::Index PathFileChange::addPath(const MetadataPath& path) {
    if (!items_[rootItem].isThere())
        write(rootItem);  // with the core file a project has metadata
    Index index = rootItem;
    std::size_t depth = 0;
    for (const PathElement& element : path.getPath()) {
        index = follow(depth++, element);
        if (items_[index].isThere())
            continue;
        requireStorable(path, getFile(index));
        items_[index].rank = makeLastRank(items_[index].parent);
        write(index);
    }
    return index;
}

void PathFileChange::add(const MetadataPath& path) {
    addPath(path);
}

void PathFileChange::setNode(const MetadataPath& path, const MetadataNode* node) {
    setNode(addPath(path), node);
}

void PathFileChange::removeNode(const MetadataPath& path) {
    if (const auto index = find(path))
        setNode(*index, nullptr);
}

void PathFileChange::setNode(Index index, const MetadataNode* newNode) {
    auto node = borrowNode(newNode, getFile(index));
    const auto now = items_[index].keepsNode ? readNode(index) : nullptr;
    const MetadataNode* const current = items_[index].keepsNode ? now.get() : items_[index].newNode.get();
    if (equalTrees(current, node.get()))
        return;
    if (node)
        requireReadable(*node, nodeDepth, getFile(index));
    write(index);
    Item& item = items_[index];
    item.replacesNode = item.replacesNode || current;
    item.keepsNode = false;
    item.newNode = std::move(node);
}

void PathFileChange::removeFile(const Path& file) {
    const PathFilePtr now = files_.readForChange(file, Extent::place);
    if (!now)
        return;
    if (now->damage)
        raiseDamage(file, now);
    removals_.push_back({file, now->version});
}

void PathFileChange::removeNamedFiles(const Path& folder) {
    files_.visitFiles(folder, [this](const Path& file) {
        const PathFilePtr content = files_.readForChange(file, Extent::place);
        if (content && isNamed(file, *content))
            removeFile(file);
        return true;
    });
}

void PathFileChange::remove(const MetadataPath& path) {
    files_.visitFiles(files_.locate(path).folder, [this](const Path& file) {
        removeFile(file);
        return true;
    });
    if (path.getPath().empty())
        removeNode(path);
    else
        removeFile(files_.locate(path).file);
}

void PathFileChange::rename(const MetadataPath& path, const PathElement& element) {
    const MetadataPath target = store_support::replaceLeaf(path, element);
    const auto old = find(path);
    const auto hasBelow = [this](const MetadataPath& place) { return files_.hasChildren(files_.locate(place).folder); };
    const bool isTargetThere = find(target).has_value() || hasBelow(target);
    const Path file = files_.locate(path).file;
    if (!store_support::requireRenamable(path, target, {old.has_value(), hasBelow(path), isTargetThere}, file))
        return;
    const Index renamed = find(items_[*old].parent, element);
    items_[renamed].rank = items_[*old].rank;
    items_[renamed].newNode = readNode(*old);
    write(renamed);
    removeFile(file);
}

void PathFileChange::arrange(const std::vector<MetadataPath>& paths, const WantedTree& wanted) {
    addPath(MetadataPath());
    for (const MetadataPath& path : paths) {
        if (path.getPath().size() > store_support::maximumSteps && !find(path))
            requireStorable(path, files_.locate(path).file);
    }
    arrangeFolder(wanted, 0, rootItem);
    if (!wanted.has(MetadataPath()))
        removeNode(MetadataPath());
}

void PathFileChange::arrangeFolder(const WantedTree& wanted, WantedTree::Index parent, Index index) {
    host::Interruption::throwIfRequested();
    if (isDecided())
        return;
    std::vector<std::u16string> names;  // of the children's folders
    names.reserve(wanted.getChildren(parent).size());
    for (const WantedTree::Index child : wanted.getChildren(parent))
        names.push_back(nodeFolderName(wanted.getElement(child)));
    arrangeChildren(wanted, parent, index, names);
    if (isDecided())
        return;
    const Path folder = getFolder(index);
    std::unordered_map<std::u16string_view, WantedTree::Index> children;  // by the name of the folder
    children.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        children.emplace(names[i], wanted.getChildren(parent)[i]);
    std::vector<WantedTree::Index> below;
    for (const std::string& accessName : store_support::listNames(folder)) {
        const Path name = Path::fromAccessName(accessName);
        // Of most files that is all there is to find out.
        if (children.count(stem(name)) != 0)
            continue;
        const Path entry = folder / name;
        if (isNodeFile(entry)) {
            const PathFilePtr content = files_.readForChange(entry, Extent::place);
            if (content && isNamed(entry, *content))
                removeFile(entry);
        } else if (isNodeFolder(entry) && store_support::isFolder(entry)) {
            const auto child = children.find(name.text());
            if (child == children.end())
                removeNamedFiles(entry);
            else if (wanted.getChildren(child->second).empty())
                below.push_back(child->second);
        }
    }
    for (const WantedTree::Index child : wanted.getChildren(parent)) {
        if (!wanted.getChildren(child).empty())
            below.push_back(child);
    }
    for (const WantedTree::Index child : below)
        arrangeFolder(wanted, child, find(index, wanted.getElement(child)));
}

void PathFileChange::arrangeChildren(const WantedTree& wanted, WantedTree::Index parent, Index index,
                                     const std::vector<std::u16string>& names) {
    const Path folder = getFolder(index);
    const bool isFolderThere = hasFolder(index);
    std::vector<Sibling> siblings;
    std::vector<std::optional<Rank>> ranks;
    siblings.reserve(names.size());
    ranks.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const PathElement& element = wanted.getElement(wanted.getChildren(parent)[i]);
        const PathFilePtr now =
            isFolderThere ? files_.readForChange(folder / Path(names[i] + nodeFileExtension), Extent::place) : nullptr;
        // The place of a damaged one is the last.
        if (now && now->isBroken())
            continue;
        ranks.push_back(now ? std::optional(now->rank) : std::nullopt);
        siblings.push_back({&element, ranks.back()});
    }
    if (areInOrder(siblings))
        return;
    const std::vector<Rank> arranged = arrangeRanks(ranks);
    for (std::size_t i = 0; i < siblings.size(); ++i) {
        if (ranks[i] == arranged[i])
            continue;
        const Index child = find(index, *siblings[i].element);
        write(child);
        items_[child].rank = arranged[i];
    }
}

void PathFileChange::writeStaged(Index index, const Path& file, const Path& staged) {
    const Item& item = items_[index];
    const auto node = item.keepsNode ? readNode(index) : item.newNode;
    const PathFile content{item.element, item.rank, node, {}, {}, node != nullptr};
    const bool isRoot = index == rootItem;
    const auto tell = [&](project::metadata::XmlSink& sink) { tellXml(content, isRoot, sink); };
    store_support::writeProved(tell, staged, isRoot && !node, file);
}

void PathFileChange::requireSeen() {
    files_.seen().lookAgain();
    const auto require = [](bool isSeen, const Path& file) {
        if (!isSeen) {
            raise<MetadataWriteFailure>(file.text(),
                                        u"somebody else has changed it since it was read; read it again first");
        }
    };
    const auto putsNodeBack = [&](Index index) {
        const bool isNew = !items_[index].exists || (!items_[index].hasNode && items_[index].newNode);
        return isNew && !told_.isEmpty() && told_.isExpected(getPath(index));
    };
    for (const Index index : writes_) {
        Item& item = items_[index];
        // What the user does not know he does not know either when it only gets a new rank.
        item.isSeen = !item.exists || files_.seen().isKnown(getFile(index), item.old);
        if (item.replacesNode)
            require(item.isSeen, getFile(index));
        if (putsNodeBack(index))
            raise<MetadataWriteFailure>(getFile(index).text(), u"its node " + std::u16string(removedUnseen));
    }
    for (const Removal& removal : removals_)
        require(files_.seen().isKnown(removal.file, removal.version), removal.file);
}

void PathFileChange::commit(const JobRunner& runJob, FolderLock& lock) {
    // Several removals may have met the same files.
    const auto isBefore = [](const Removal& a, const Removal& b) { return a.file < b.file; };
    if (!std::is_sorted(removals_.begin(), removals_.end(), isBefore))
        std::sort(removals_.begin(), removals_.end(), isBefore);
    removals_.erase(std::unique(removals_.begin(), removals_.end(),
                                [](const Removal& a, const Removal& b) { return a.file == b.file; }),
                    removals_.end());
    requireSeen();
    // What is not needed any more makes room for the lists of files.
    index_ = {};
    lastContent_ = {};
    for (const Index index : writes_)
        files_.drop(items_[index].old);
    for (const Removal& removal : removals_)
        files_.drop(removal.version);
    FileBatch batch;
    batch.folder = files_.getFolder();
    batch.filesToWrite.reserve(writes_.size());
    for (const Index index : writes_)
        batch.filesToWrite.push_back(getFile(index));
    batch.filesToRemove.reserve(removals_.size());
    for (Removal& removal : removals_)
        batch.filesToRemove.push_back(std::move(removal.file));
    batch.write = [&](std::size_t number, const Path& staged) {
        const Path& file = batch.filesToWrite[number];
        writeStaged(writes_[number], file, staged);
        Item& item = items_[writes_[number]];
        // But for the time of the last change it keeps this version when it is put into place.
        item.staged = getFileVersion(staged).value_or(item.staged);
        // A branch that he did not know he knows once he has given it a node.
        if (item.isSeen || item.newNode)
            files_.seen().add(file, item.staged);
    };
    runJob(project::metadata::FileJob(batch.filesToWrite, batch.filesToRemove, [&] {
        // Subscribers may have read since the change began.
        files_.lookAgain();
        try {
            store_support::commit(batch, lock);
        } catch (...) {
            keepSeen(batch.filesToWrite);
            throw;
        }
        for (std::size_t i = 0; i < removals_.size(); ++i)
            files_.seen().remove(batch.filesToRemove[i], removals_[i].version);
        std::vector<Path> written = std::move(batch.filesToWrite);
        batch = {};
        noteDone(std::move(written));
        lock.release();
    }));
}

void PathFileChange::noteDone(std::vector<Path> files) noexcept {
    // What cannot be noted will be looked up again.
    try {
        for (std::size_t i = 0; i < files.size(); ++i) {
            const Path file = std::move(files[i]);
            const Item& item = items_[writes_[i]];
            if (item.exists)
                files_.seen().remove(file, item.old);
            const auto version = getFileVersion(file);
            if (version && version->inode == item.staged.inode && version->size == item.staged.size &&
                version->modified == item.staged.modified) {
                const bool hasNode = item.keepsNode || item.newNode;
                files_.noteWritten(file, {item.element, item.rank, nullptr, {}, *version, hasNode});
            }
        }
        for (const auto& [parent, rank] : lastRanks_)
            files_.noteLastRank(getFolder(parent), rank);
    } catch (...) {
    }
}

void PathFileChange::keepSeen(const std::vector<Path>& files) noexcept {
    try {
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (!items_[writes_[i]].isSeen)
                continue;
            if (const auto version = getFileVersion(files[i]); version && files_.seen().isNews(*version))
                files_.seen().add(files[i], *version);
        }
    } catch (...) {
    }
}

}  // namespace stores::fixed_path
