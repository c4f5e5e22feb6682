#include "stores/fixed_path/PathFileChange.hpp"

#include <algorithm>
#include <optional>
#include <set>
#include <unordered_set>
#include <utility>

#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "stores/common/FileBatch.hpp"
#include "stores/common/PathXml.hpp"
#include "stores/common/TreeRules.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::PathElement;

namespace {

/// How many elements lie above a node in its file: the path's own and "Node".
constexpr int nodeDepth = 2;

bool equalNodes(const MetadataNode* a, const MetadataNode* b) {
    return a && b ? equalTrees(*a, *b) : a == b;
}

/// The children that a folder is to have, in order, each once.
struct WantedFolder {
    Path folder;
    std::vector<PathElement> children;
};

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

PathFileChange::PathFileChange(const PathFiles& files) : files_(files) {}

const PathFile* PathFileChange::find(const Path& file) {
    const auto written = writeIndex_.find(file.text());
    if (written != writeIndex_.end())
        return &writes_[written->second].content;
    auto existing = existing_.find(file.text());
    if (existing == existing_.end())
        existing = existing_.emplace(file.text(), files_.read(file)).first;
    return existing->second.get();
}

void PathFileChange::write(const Path& file, PathFile content) {
    const auto [place, isNew] = writeIndex_.emplace(file.text(), writes_.size());
    if (isNew)
        writes_.push_back({file, std::move(content), file == files_.getFile(MetadataPath())});
    else
        writes_[place->second].content = std::move(content);
}

Rank PathFileChange::makeLastRank(const Path& childFolder) {
    auto last = lastRanks_.find(childFolder.text());
    if (last == lastRanks_.end()) {
        const auto children = files_.readChildren(childFolder);
        last = lastRanks_.emplace(childFolder.text(), children.empty() ? Rank() : children.back()->rank).first;
    }
    last->second = makeRanks(last->second, {}, 1).front();
    return last->second;
}

void PathFileChange::addCoreFile() {
    const Path coreFile = files_.getFile(MetadataPath());
    if (!find(coreFile))
        write(coreFile, {{u"", u""}, {}, nullptr});
}

void PathFileChange::add(const MetadataPath& path) {
    addCoreFile();
    Path folder = files_.getFolder();
    for (const PathElement& element : path.getPath()) {
        const Path file = folder / nodeFileName(element);
        if (!find(file))
            write(file, {element, makeLastRank(folder), nullptr});
        folder /= nodeFolderName(element);
    }
}

void PathFileChange::setNode(const MetadataPath& path, const MetadataNode* node) {
    const Path file = files_.getFile(path);
    const PathFile* const now = find(file);
    if (!now || equalNodes(now->node.get(), node))
        return;
    if (node)
        requireReadable(*node, nodeDepth, file);
    PathFile content = *now;
    content.node = node ? std::make_shared<MetadataNodeSpecification>(*node) : nullptr;
    write(file, std::move(content));
}

void PathFileChange::remove(const MetadataPath& path) {
    const std::vector<Path> below = files_.list(files_.getChildFolder(path));
    removals_.insert(removals_.end(), below.begin(), below.end());
    if (path.getPath().empty())
        setNode(path, nullptr);
    else if (const Path file = files_.getFile(path); find(file))
        removals_.push_back(file);
}

void PathFileChange::arrange(const std::vector<MetadataPath>& paths) {
    addCoreFile();
    const WantedTree wanted = makeWantedTree(files_, paths);
    for (const WantedFolder& folder : wanted.folders)
        arrangeFolder(folder.folder, folder.children);
    for (Path& file : files_.list(files_.getFolder())) {
        if (wanted.files.count(file.text()) == 0)
            removals_.push_back(std::move(file));
    }
    if (std::find(paths.begin(), paths.end(), MetadataPath()) == paths.end())
        setNode(MetadataPath(), nullptr);
}

void PathFileChange::arrangeFolder(const Path& folder, const std::vector<PathElement>& children) {
    std::vector<std::optional<Rank>> ranks;
    bool inOrder = true;
    for (std::size_t i = 0; i < children.size(); ++i) {
        const PathFile* const now = find(folder / nodeFileName(children[i]));
        ranks.push_back(now ? std::optional(now->rank) : std::nullopt);
        // Siblings that share a rank are in order by their elements.
        inOrder =
            inOrder && now &&
            (i == 0 || *ranks[i - 1] < now->rank || (*ranks[i - 1] == now->rank && children[i - 1] < children[i]));
    }
    if (inOrder)
        return;
    const std::vector<Rank> arranged = arrangeRanks(ranks);
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (ranks[i] == arranged[i])
            continue;
        const Path file = folder / nodeFileName(children[i]);
        const PathFile* const now = find(file);
        write(file, {children[i], arranged[i], now ? now->node : nullptr});
    }
}

void PathFileChange::writeStaged(const Write& write, const Path& staged) const {
    if (write.isRoot && !write.content.node) {
        project::metadata::CoreMetadataHandler(project::metadata::getParentFolder(staged), fixedPathName,
                                               projectElementName)
            .createCoreMetadata();
        return;
    }
    const auto xml = toXml(write.content, write.isRoot);
    project::metadata::writeToFile(*xml, staged, false);
    if (needsProof(*xml))
        requireReadsBack(*xml, staged, write.file);
}

void PathFileChange::commit(const JobRunner& runJob) {
    FileBatch batch;
    batch.folder = files_.getFolder();
    for (const Write& write : writes_)
        batch.filesToWrite.push_back(write.file);
    const std::set<Path> removals(removals_.begin(), removals_.end());
    batch.filesToRemove.assign(removals.begin(), removals.end());
    batch.write = [this](std::size_t index, const Path& staged) { writeStaged(writes_[index], staged); };
    if (batch.filesToWrite.empty() && batch.filesToRemove.empty())
        return;
    runJob(project::metadata::FileJob(batch.filesToWrite, batch.filesToRemove, [&batch] { stores::commit(batch); }));
}

}  // namespace stores::fixed_path
