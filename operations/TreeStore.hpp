/// An exported file, or another file of metadata, looked at as if it were a project.
///
/// One thread at a time, as the stores.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace operations {

/// What `tree` holds. Every change is refused with an OperationError.
class TreeStore : public project::metadata::MetadataManager {
public:
    explicit TreeStore(MetadataTree tree);

    std::unique_ptr<project::metadata::MetadataNode> getNode(
        const project::metadata::MetadataPath& path) const override;
    bool hasNode(const project::metadata::MetadataPath& path) const override;
    std::vector<project::metadata::MetadataPath> getChildren(
        const project::metadata::MetadataPath& path) const override;
    bool hasPath(const project::metadata::MetadataPath& path) const override;

    void setNode(const project::metadata::MetadataPath& path, const project::metadata::MetadataNode& node) override;
    void removeNode(const project::metadata::MetadataPath& path) override;
    void addPath(const project::metadata::MetadataPath& path) override;
    void removePath(const project::metadata::MetadataPath& path) override;
    void setNodes(const std::map<project::metadata::MetadataPath, std::shared_ptr<project::metadata::MetadataNode>>&
                      nodes) override;
    void removePaths(const std::vector<project::metadata::MetadataPath>& paths) override;
    void setPaths(const std::vector<project::metadata::MetadataPath>& paths) override;

private:
    void index(const project::metadata::MetadataPath& path, const PathTree& tree);
    const PathTree* find(const project::metadata::MetadataPath& path) const;

    MetadataTree tree_;
    std::map<project::metadata::MetadataPath, const PathTree*, BySteps> places_;
};

/// What is at `place`, to be read only: the project with that root folder, or what `readTree` reads of a file.
/// @throws as `openProject` or `readTree`
std::unique_ptr<project::metadata::MetadataManager> openForReading(const host::Path& place, Observer& observer);

}  // namespace operations
