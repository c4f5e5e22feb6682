/// The store "fixedPath".
///
/// Everything is read from disk when it is asked for, and kept in memory as long as its file does not change, so two
/// stores on one project see each other's changes.
#pragma once

#include "host/Path.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "stores/common/StoreFactory.hpp"
#include "stores/fixed_path/PathFiles.hpp"

namespace stores::fixed_path {

/// One thread at a time may use a store. What each operation does is said at `MetadataManager`. Reading operations
/// throw `MetadataReadFailure` for a damaged file; changing ones throw that too, and what `FileBatch` and `TreeRules`
/// throw.
class FixedPathManager : public project::metadata::MetadataManager {
public:
    /// @param folder the metadata folder, which need not exist
    FixedPathManager(const host::Path& folder, JobRunner runJob);

    void setNode(const project::metadata::MetadataPath& path, const project::metadata::MetadataNode& node) override;
    void removeNode(const project::metadata::MetadataPath& path) override;
    void addPath(const project::metadata::MetadataPath& path) override;
    void removePath(const project::metadata::MetadataPath& path) override;
    std::unique_ptr<project::metadata::MetadataNode> getNode(
        const project::metadata::MetadataPath& path) const override;
    void setNodes(const std::map<project::metadata::MetadataPath, std::shared_ptr<project::metadata::MetadataNode>>&
                      nodes) override;
    void removePaths(const std::vector<project::metadata::MetadataPath>& paths) override;
    bool hasNode(const project::metadata::MetadataPath& path) const override;
    std::vector<project::metadata::MetadataPath> getChildren(
        const project::metadata::MetadataPath& path) const override;
    bool hasPath(const project::metadata::MetadataPath& path) const override;
    void setPaths(const std::vector<project::metadata::MetadataPath>& paths) override;

private:
    PathFiles files_;
    JobRunner runJob_;
};

}  // namespace stores::fixed_path
