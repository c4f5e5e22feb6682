#include "stores/fixed_path/FixedPathManager.hpp"

#include <utility>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "stores/fixed_path/PathFileChange.hpp"

namespace stores::fixed_path {

using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;

FixedPathManager::FixedPathManager(const host::Path& folder, JobRunner runJob)
    : files_(folder), runJob_(std::move(runJob)) {}

void FixedPathManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    PathFileChange change(files_);
    change.add(path);
    change.setNode(path, &node);
    change.commit(runJob_);
}

void FixedPathManager::removeNode(const MetadataPath& path) {
    if (!hasNode(path))
        return;
    PathFileChange change(files_);
    change.setNode(path, nullptr);
    change.commit(runJob_);
}

void FixedPathManager::addPath(const MetadataPath& path) {
    PathFileChange change(files_);
    change.add(path);
    change.commit(runJob_);
}

void FixedPathManager::removePath(const MetadataPath& path) {
    removePaths({path});
}

std::unique_ptr<MetadataNode> FixedPathManager::getNode(const MetadataPath& path) const {
    const PathFilePtr file = files_.read(files_.getFile(path));
    return file && file->node ? std::make_unique<MetadataNodeSpecification>(*file->node) : nullptr;
}

void FixedPathManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    PathFileChange change(files_);
    for (const auto& [path, node] : nodes) {
        change.add(path);
        change.setNode(path, node.get());
    }
    change.commit(runJob_);
}

void FixedPathManager::removePaths(const std::vector<MetadataPath>& paths) {
    PathFileChange change(files_);
    for (const MetadataPath& path : paths)
        change.remove(path);
    change.commit(runJob_);
}

bool FixedPathManager::hasNode(const MetadataPath& path) const {
    const PathFilePtr file = files_.read(files_.getFile(path));
    return file && file->node;
}

std::vector<MetadataPath> FixedPathManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    for (const PathFilePtr& child : files_.readChildren(files_.getChildFolder(path))) {
        std::vector<project::metadata::PathElement> elements = path.getPath();
        elements.push_back(child->element);
        children.emplace_back(std::move(elements));
    }
    return children;
}

bool FixedPathManager::hasPath(const MetadataPath& path) const {
    return path.getPath().empty() || files_.read(files_.getFile(path));
}

void FixedPathManager::setPaths(const std::vector<MetadataPath>& paths) {
    PathFileChange change(files_);
    change.arrange(paths);
    change.commit(runJob_);
}

}  // namespace stores::fixed_path
