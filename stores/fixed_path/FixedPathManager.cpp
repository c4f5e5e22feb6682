#include "stores/fixed_path/FixedPathManager.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/Disk.hpp"
#include "store_support/Renaming.hpp"
#include "store_support/StoreFiles.hpp"
#include "store_support/WantedTree.hpp"
#include "stores/fixed_path/Fingerprint.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;
using store_support::FolderLock;
using store_support::JobRunner;
using store_support::requireMetadataType;
using store_support::ToldNodes;
using store_support::WantedTree;

namespace {

/// @param nodes pairs of a path and its node
template <class Nodes>
void setAll(PathFileChange& change, const Nodes& nodes) {
    for (const auto& [path, node] : nodes) {
        if (change.isDecided())
            return;
        change.setNode(path, node.get());
    }
}

}  // namespace

FixedPathManager::FixedPathManager(const host::Path& folder, JobRunner runJob)
    : files_(folder), runJob_(std::move(runJob)) {}

void FixedPathManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    change(told_.setting(path, true), [&](PathFileChange& change) { change.setNode(path, &node); });
}

void FixedPathManager::removeNode(const MetadataPath& path) {
    change(told_.setting(path, false), [&](PathFileChange& change) { change.removeNode(path); });
}

void FixedPathManager::addPath(const MetadataPath& path) {
    change(ToldNodes::Change(told_), [&](PathFileChange& change) { change.add(path); });
}

void FixedPathManager::removePath(const MetadataPath& path) {
    removePaths({path});
}

std::unique_ptr<MetadataNode> FixedPathManager::getNode(const MetadataPath& path) const {
    const PathFilePtr content = read(path, Extent::whole);
    if (!content || (!content->node && !content->isBroken()))
        return nullptr;
    if (!content->node) {
        project::metadata::raise<project::metadata::MetadataReadFailure>(files_.locate(path).file.text(),
                                                                         content->damage->problem);
    }
    return project::metadata::copyKeptNode(content->node);
}

void FixedPathManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    if (content_)
        content_->insert(content_->end(), nodes.begin(), nodes.end());
    else
        change(told_.setting(nodes), [&](PathFileChange& change) { setAll(change, nodes); });
}

void FixedPathManager::removePaths(const std::vector<MetadataPath>& paths) {
    change(told_.removing(paths), [&](PathFileChange& change) {
        for (const MetadataPath& path : paths)
            change.remove(path);
    });
}

bool FixedPathManager::hasNode(const MetadataPath& path) const {
    const PathFilePtr content = read(path, Extent::place);
    return content && (content->hasNode || content->isBroken());
}

std::vector<MetadataPath> FixedPathManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    if (const auto known = files_.recall(path); known && !known->hasFolder)
        return children;
    const PathFiles::Place& place = files_.locate(path);
    auto found = files_.recallChildren(place.folder);
    if (!found) {
        found = readChildren(place);
        files_.remember(place.folder, *found);
    }
    children.reserve(found->children.size());
    for (const Child& child : found->children) {
        if (isNewBranch(*child.content))
            files_.seen().add(place.folder / nodeFileName(child.content->element), child.content->version);
        std::vector<project::metadata::PathElement> elements;
        elements.reserve(path.getPath().size() + 1);
        elements = path.getPath();
        elements.push_back(child.content->element);
        children.emplace_back(std::move(elements));
    }
    return children;
}

bool FixedPathManager::hasPath(const MetadataPath& path) const {
    if (path.getPath().empty())
        return true;
    files_.settle();
    const PathFiles::Place& place = files_.locate(path);
    const PathFilePtr content = files_.read(place, Extent::place);
    if (content && isNewBranch(*content))
        files_.seen().add(place.file, content->version);
    return content || files_.hasChildren(place.folder);
}

void FixedPathManager::setPaths(const std::vector<MetadataPath>& paths) {
    const WantedTree wanted(paths);
    Content nodes = std::exchange(content_, std::nullopt).value_or(Content());
    nodes.erase(std::remove_if(nodes.begin(), nodes.end(), [&](const auto& entry) { return !wanted.has(entry.first); }),
                nodes.end());
    ToldNodes::Change told = told_.keeping(paths);
    told.add(told_.setting(nodes));
    change(std::move(told), [&](PathFileChange& change) {
        change.arrange(paths, wanted);
        setAll(change, nodes);
    });
}

void FixedPathManager::renamePath(const MetadataPath& path, const project::metadata::PathElement& element) {
    change(told_.renaming(path, store_support::replaceLeaf(path, element)),
           [&](PathFileChange& change) { change.rename(path, element); });
}

std::vector<project::metadata::MetadataDamage> FixedPathManager::findDamage() const {
    files_.settle();
    return files_.findDamage();
}

std::vector<project::metadata::StoreFile> FixedPathManager::listFiles() const {
    files_.settle();
    std::vector<project::metadata::StoreFile> files;
    for (const Path& file : files_.list(files_.getFolder()))
        files.push_back({file, true});
    return store_support::listStoreFiles(files_.getFolder(), std::move(files));
}

host::Path FixedPathManager::getNodeFile(const MetadataPath& path) const {
    return files_.locate(path).file;
}

host::Path FixedPathManager::getChildFolder(const MetadataPath& path) const {
    return files_.locate(path).folder;
}

bool FixedPathManager::hasLossIn(const Path& entry) const {
    files_.settle();
    return files_.hasLossIn(entry);
}

std::string FixedPathManager::getFingerprint(const MetadataPath& path) const {
    files_.settle();
    return readFingerprint(files_.locate(path).folder);
}

std::string FixedPathManager::getFingerprintOfRead(const MetadataPath& path) const {
    const auto known = files_.recallListing(files_.locate(path).folder);
    return known ? makeFingerprint(*known, files_.seen()) : std::string();
}

bool FixedPathManager::isNewBranch(const PathFile& content) const {
    return !content.hasNode && files_.seen().isNews(content.version);
}

PathFilePtr FixedPathManager::read(const MetadataPath& path, Extent extent) const {
    const auto known = files_.recall(path);
    PathFilePtr content = known ? known->content : nullptr;
    if (!isEnough(content, extent)) {
        files_.settle();
        content = files_.read(files_.locate(path), extent);
    }
    if (content && files_.seen().isNews(content->version))
        files_.seen().add(files_.locate(path).file, content->version);
    told_.tell(path, content && (content->hasNode || content->isBroken()));
    return content;
}

Listing FixedPathManager::readChildren(const PathFiles::Place& place) const {
    const auto findVersion = [&] { return store_support::getFolderVersion(place.folder, place.folderName); };
    constexpr int patience = 3;
    for (int attempt = 0; attempt < patience; ++attempt) {
        // Most paths have none.
        if (!findVersion() && !files_.isInterrupted())
            return {};
        files_.settle();
        const auto version = findVersion();
        const auto isUndisturbed = [&] { return !files_.isInterrupted() && findVersion() == version; };
        try {
            Listing listing = files_.readChildren(place.folder);
            if (isUndisturbed())
                return listing;
        } catch (const project::exception::ProjectException&) {
            if (isUndisturbed())
                throw;
        }
    }
    // Somebody changes this folder again and again.
    const FolderLock lock(files_.getFolder());
    return files_.readChildren(place.folder);
}

void FixedPathManager::change(ToldNodes::Change told, const std::function<void(PathFileChange&)>& collect) {
    files_.lookAgain();
    files_.settle();
    {
        PathFileChange expected(files_, told_, PathFileChange::Mode::look);
        collect(expected);
        if (expected.isEmpty()) {
            told.done();
            return;
        }
    }
    FolderLock lock(files_.getFolder());
    requireMetadataType(files_.getFolder(), fixedPathName);
    // Somebody else may have been faster.
    PathFileChange change(files_, told_, PathFileChange::Mode::write);
    collect(change);
    if (!change.isEmpty())
        change.commit(runJob_, lock);
    told.done();
}

}  // namespace stores::fixed_path
