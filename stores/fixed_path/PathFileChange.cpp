#include "stores/fixed_path/PathFileChange.hpp"

#include <algorithm>
#include <optional>
#include <unordered_set>
#include <utility>

#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::MetadataWriteFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using store_support::equalTrees;
using store_support::FileBatch;
using store_support::FolderLock;
using store_support::getFileVersion;
using store_support::JobRunner;
using store_support::needsProof;
using store_support::requireReadable;
using store_support::requireReadsBack;
using store_support::requireSteps;

namespace {

/// How many elements lie above a node in its file: the path's own and "Node".
constexpr int nodeDepth = 2;

void requireSound(const Path& file, const PathFile& content) {
    if (!content.damage.empty()) {
        raise<MetadataWriteFailure>(
            file.text(),
            u"it is damaged, and neither overwritten nor removed before it is repaired: " + content.damage);
    }
}

/// The children that a folder is to have, in order, each once.
struct WantedFolder {
    Path folder;
    std::vector<PathElement> children;
};

/// Whether the file tells which path it belongs to.
bool isNamed(const Path& file, const PathFile* content) {
    return content && file.fileName().text() == nodeFileName(content->element);
}

/// What `paths` and their ancestors amount to, by folder; a folder comes before those below it.
struct WantedTree {
    std::vector<WantedFolder> folders;
    std::unordered_set<std::u16string> files;
};

WantedTree makeWantedTree(const PathFiles& files, const std::vector<MetadataPath>& paths) {
    WantedTree tree;
    std::unordered_map<std::u16string, std::size_t> folderIndex;
    for (const MetadataPath& path : paths) {
        Path folder = files.getFolder();
        for (const PathElement& element : path.getPath()) {
            const auto [place, isNewFolder] = folderIndex.emplace(folder.text(), tree.folders.size());
            if (isNewFolder)
                tree.folders.push_back({folder, {}});
            if (tree.files.insert((folder / nodeFileName(element)).text()).second)
                tree.folders[place->second].children.push_back(element);
            folder /= nodeFolderName(element);
        }
    }
    return tree;
}

}  // namespace

PathFileChange::PathFileChange(PathFiles& files) : files_(files) {}

const PathFile* PathFileChange::find(const Path& file) {
    const auto written = writeIndex_.find(file.text());
    if (written != writeIndex_.end())
        return &writes_[written->second].content;
    auto existing = existing_.find(file.text());
    if (existing == existing_.end())
        existing = existing_.emplace(file.text(), files_.read(file)).first;
    return existing->second.get();
}

void PathFileChange::write(const Path& file, PathFile content, bool replacesNode) {
    requireSound(file, content);
    const auto [place, isNew] = writeIndex_.emplace(file.text(), writes_.size());
    if (isNew) {
        writes_.push_back({file, std::move(content), file == files_.getFile(MetadataPath()), replacesNode, false});
        return;
    }
    Write& write = writes_[place->second];
    write.content = std::move(content);
    write.replacesNode = write.replacesNode || replacesNode;
}

void PathFileChange::removeFile(const Path& file) {
    if (const PathFile* const now = find(file)) {
        requireSound(file, *now);
        removals_.insert(file);
    }
}

Rank PathFileChange::makeLastRank(const Path& childFolder) {
    auto last = lastRanks_.find(childFolder.text());
    if (last == lastRanks_.end())
        last = lastRanks_.emplace(childFolder.text(), files_.findLastRank(childFolder)).first;
    last->second = makeRanks(last->second, {}, 1).front();
    return last->second;
}

void PathFileChange::addCoreFile() {
    const Path coreFile = files_.getFile(MetadataPath());
    if (!find(coreFile))
        write(coreFile, {{u"", u""}, {}, nullptr, {}});
}

void PathFileChange::add(const MetadataPath& path) {
    addCoreFile();
    Path folder = files_.getFolder();
    for (const PathElement& element : path.getPath()) {
        const Path file = folder / nodeFileName(element);
        if (!find(file)) {
            requireSteps(path, file);
            write(file, {element, makeLastRank(folder), nullptr, {}, {}});
        }
        folder /= nodeFolderName(element);
    }
}

void PathFileChange::setNode(const MetadataPath& path, const MetadataNode* node) {
    const Path file = files_.getFile(path);
    const PathFile* const now = find(file);
    if (!now || equalTrees(now->node.get(), node))
        return;
    if (node)
        requireReadable(*node, nodeDepth, file);
    PathFile content = *now;
    content.node = node ? std::make_shared<MetadataNodeSpecification>(*node) : nullptr;
    write(file, std::move(content), now->node != nullptr);
}

void PathFileChange::remove(const MetadataPath& path) {
    for (const Path& file : files_.list(files_.getChildFolder(path)))
        removeFile(file);
    if (path.getPath().empty())
        setNode(path, nullptr);
    else
        removeFile(files_.getFile(path));
}

void PathFileChange::arrange(const std::vector<MetadataPath>& paths) {
    addCoreFile();
    for (const MetadataPath& path : paths) {
        const Path file = files_.getFile(path);
        if (!find(file))
            requireSteps(path, file);
    }
    const WantedTree wanted = makeWantedTree(files_, paths);
    for (const WantedFolder& folder : wanted.folders)
        arrangeFolder(folder.folder, folder.children);
    for (const Path& file : files_.list(files_.getFolder())) {
        if (wanted.files.count(file.text()) == 0 && isNamed(file, find(file)))
            removeFile(file);
    }
    if (std::find(paths.begin(), paths.end(), MetadataPath()) == paths.end())
        setNode(MetadataPath(), nullptr);
}

void PathFileChange::arrangeFolder(const Path& folder, const std::vector<PathElement>& children) {
    std::vector<const PathElement*> elements;
    std::vector<std::optional<Rank>> ranks;
    bool inOrder = true;
    for (const PathElement& child : children) {
        const PathFile* const now = find(folder / nodeFileName(child));
        // The place of a damaged one is the last.
        if (now && !now->damage.empty())
            continue;
        // Siblings that share a rank are in order by their elements.
        inOrder =
            inOrder && now &&
            (elements.empty() || *ranks.back() < now->rank || (*ranks.back() == now->rank && *elements.back() < child));
        elements.push_back(&child);
        ranks.push_back(now ? std::optional(now->rank) : std::nullopt);
    }
    if (inOrder)
        return;
    const std::vector<Rank> arranged = arrangeRanks(ranks);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (ranks[i] == arranged[i])
            continue;
        const Path file = folder / nodeFileName(*elements[i]);
        const PathFile* const now = find(file);
        write(file, {*elements[i], arranged[i], now ? now->node : nullptr, {}});
    }
}

void PathFileChange::writeStaged(const Write& write, const Path& staged) const {
    if (write.isRoot && !write.content.node) {
        project::metadata::writeToFile(*toXml(write.content, true), staged, true);
        return;
    }
    const auto xml = toXml(write.content, write.isRoot);
    project::metadata::writeToFile(*xml, staged, false);
    if (needsProof(*xml))
        requireReadsBack(*xml, staged, write.file);
}

bool PathFileChange::isSeen(const Path& file) const {
    const auto existing = existing_.find(file.text());
    return existing == existing_.end() || !existing->second || files_.isSeen(file, existing->second->version);
}

void PathFileChange::requireSeen() const {
    const auto require = [&](const Path& file) {
        if (!isSeen(file)) {
            raise<MetadataWriteFailure>(file.text(),
                                        u"somebody else has changed it since it was read; read it again first");
        }
    };
    for (const Write& write : writes_) {
        if (write.replacesNode)
            require(write.file);
    }
    for (const Path& file : removals_)
        require(file);
}

void PathFileChange::commit(const JobRunner& runJob, FolderLock& lock) {
    requireSeen();
    // What the user does not know he does not know either when it only gets a new rank.
    for (Write& write : writes_)
        write.isSeen = isSeen(write.file);
    FileBatch batch;
    batch.folder = files_.getFolder();
    for (const Write& write : writes_)
        batch.filesToWrite.push_back(write.file);
    batch.filesToRemove.assign(removals_.begin(), removals_.end());
    batch.write = [this](std::size_t index, const Path& staged) {
        writeStaged(writes_[index], staged);
        // It keeps this version when it is put into place.
        const auto version = getFileVersion(staged);
        if (version && writes_[index].isSeen)
            files_.markSeen(*version);
    };
    std::set<Path> ourFolders;
    for (const auto* files : {&batch.filesToWrite, &batch.filesToRemove}) {
        for (const Path& file : *files) {
            const Path folder = project::metadata::getParentFolder(file);
            if (ourFolders.count(folder) == 0 && files_.isOurs(folder))
                ourFolders.insert(folder);
        }
    }
    runJob(project::metadata::FileJob(batch.filesToWrite, batch.filesToRemove, [&] {
        try {
            store_support::commit(batch, lock);
        } catch (...) {
            keepSeen();
            throw;
        }
        for (const auto& [file, content] : existing_) {
            if (content && (writeIndex_.count(file) != 0 || removals_.count(Path(file)) != 0))
                files_.forget(content->version);
        }
        for (const Path& folder : ourFolders)
            files_.markOurs(folder);
        for (const auto& [folder, rank] : lastRanks_)
            files_.noteLastRank(Path(folder), rank);
        lock.release();
    }));
}

void PathFileChange::keepSeen() const noexcept {
    try {
        for (const Write& write : writes_) {
            if (!write.isSeen)
                continue;
            if (const auto version = getFileVersion(write.file))
                files_.markSeen(*version);
        }
    } catch (...) {
    }
}

}  // namespace stores::fixed_path
