#include "stores/fixed_path/FixedPathManager.hpp"

#include <utility>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/StoreFiles.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;
using store_support::FolderLock;
using store_support::getFileVersion;
using store_support::isInterrupted;
using store_support::JobRunner;
using store_support::requireMetadataType;
using store_support::settle;

FixedPathManager::FixedPathManager(const host::Path& folder, JobRunner runJob)
    : files_(folder), runJob_(std::move(runJob)) {}

void FixedPathManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    change([&](PathFileChange& change) {
        change.add(path);
        change.setNode(path, &node);
    });
}

void FixedPathManager::removeNode(const MetadataPath& path) {
    change([&](PathFileChange& change) { change.setNode(path, nullptr); });
}

void FixedPathManager::addPath(const MetadataPath& path) {
    change([&](PathFileChange& change) { change.add(path); });
}

void FixedPathManager::removePath(const MetadataPath& path) {
    removePaths({path});
}

std::unique_ptr<MetadataNode> FixedPathManager::getNode(const MetadataPath& path) const {
    const Path file = files_.getFile(path);
    const PathFilePtr content = read(file);
    if (!content || (!content->node && content->damage.empty()))
        return nullptr;
    if (!content->node)
        project::metadata::raise<project::metadata::MetadataReadFailure>(file.text(), content->damage);
    return project::metadata::copyKeptNode(content->node);
}

void FixedPathManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    change([&](PathFileChange& change) {
        for (const auto& [path, node] : nodes) {
            change.add(path);
            change.setNode(path, node.get());
        }
    });
}

void FixedPathManager::removePaths(const std::vector<MetadataPath>& paths) {
    change([&](PathFileChange& change) {
        for (const MetadataPath& path : paths)
            change.remove(path);
    });
}

bool FixedPathManager::hasNode(const MetadataPath& path) const {
    const PathFilePtr content = read(files_.getFile(path));
    return content && content->node;
}

std::vector<MetadataPath> FixedPathManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    for (const PathFilePtr& child : readChildren(files_.getChildFolder(path))) {
        markExistenceSeen(*child);
        std::vector<project::metadata::PathElement> elements;
        elements.reserve(path.getPath().size() + 1);
        elements = path.getPath();
        elements.push_back(child->element);
        children.emplace_back(std::move(elements));
    }
    return children;
}

bool FixedPathManager::hasPath(const MetadataPath& path) const {
    if (path.getPath().empty())
        return true;
    settle(files_.getFolder());
    const PathFilePtr content = files_.read(files_.getFile(path));
    if (content)
        markExistenceSeen(*content);
    return content || files_.hasChildren(files_.getChildFolder(path));
}

void FixedPathManager::setPaths(const std::vector<MetadataPath>& paths) {
    change([&](PathFileChange& change) { change.arrange(paths); });
}

std::vector<project::metadata::MetadataDamage> FixedPathManager::findDamage() const {
    settle(files_.getFolder());
    return files_.findDamage();
}

std::vector<project::metadata::StoreFile> FixedPathManager::listFiles() const {
    settle(files_.getFolder());
    std::vector<project::metadata::StoreFile> files;
    for (const Path& file : files_.list(files_.getFolder()))
        files.push_back({file, true});
    return store_support::listStoreFiles(files_.getFolder(), std::move(files));
}

void FixedPathManager::markExistenceSeen(const PathFile& content) const {
    if (!content.node)
        files_.markSeen(content.version);
}

PathFilePtr FixedPathManager::read(const Path& file) const {
    settle(files_.getFolder());
    PathFilePtr content = files_.read(file);
    if (content)
        files_.markSeen(content->version);
    return content;
}

std::vector<PathFilePtr> FixedPathManager::readChildren(const Path& childFolder) const {
    const Path& folder = files_.getFolder();
    constexpr int patience = 3;
    for (int attempt = 0; attempt < patience; ++attempt) {
        // Most paths have none.
        if (!getFileVersion(childFolder) && !isInterrupted(folder))
            return {};
        settle(folder);
        const auto version = getFileVersion(childFolder);
        const auto isUndisturbed = [&] { return !isInterrupted(folder) && getFileVersion(childFolder) == version; };
        try {
            auto children = files_.readChildren(childFolder);
            if (isUndisturbed())
                return children;
        } catch (const project::exception::ProjectException&) {
            if (isUndisturbed())
                throw;
        }
    }
    // Somebody changes this folder again and again.
    const FolderLock lock(folder);
    return files_.readChildren(childFolder);
}

void FixedPathManager::change(const std::function<void(PathFileChange&)>& collect) {
    settle(files_.getFolder());
    PathFileChange expected(files_);
    collect(expected);
    if (expected.isEmpty())
        return;
    FolderLock lock(files_.getFolder());
    requireMetadataType(files_.getFolder(), fixedPathName);
    // Somebody else may have been faster.
    PathFileChange change(files_);
    collect(change);
    if (!change.isEmpty())
        change.commit(runJob_, lock);
}

}  // namespace stores::fixed_path
