/// An exported file, or another file of metadata, looked at as if it were a project.
///
/// One thread at a time, as the stores.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "operations/Library.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

/// What `tree` holds. Every change is refused with an OperationError.
class TreeStore : public pm::MetadataManager {
public:
    explicit TreeStore(MetadataTree tree);

    std::unique_ptr<pm::MetadataNode> getNode(const pm::MetadataPath& path) const override;
    bool hasNode(const pm::MetadataPath& path) const override;
    std::vector<pm::MetadataPath> getChildren(const pm::MetadataPath& path) const override;
    bool hasPath(const pm::MetadataPath& path) const override;

    void setNode(const pm::MetadataPath& /*path*/, const pm::MetadataNode& /*node*/) override { refuse(); }
    void removeNode(const pm::MetadataPath& /*path*/) override { refuse(); }
    void addPath(const pm::MetadataPath& /*path*/) override { refuse(); }
    void removePath(const pm::MetadataPath& /*path*/) override { refuse(); }
    void setNodes(const std::map<pm::MetadataPath, std::shared_ptr<pm::MetadataNode>>& /*nodes*/) override { refuse(); }
    void removePaths(const std::vector<pm::MetadataPath>& /*paths*/) override { refuse(); }
    void setPaths(const std::vector<pm::MetadataPath>& /*paths*/) override { refuse(); }

private:
    [[noreturn]] static void refuse();
    void index(const pm::MetadataPath& path, const PathTree& tree);
    const PathTree* find(const pm::MetadataPath& path) const;

    MetadataTree tree_;
    std::map<pm::MetadataPath, const PathTree*, BySteps> places_;
};

/// What is at `place`, to be read only: the project with that root folder, or what `readTree` reads of a file.
/// @throws as `openProject` or `readTree`
std::unique_ptr<pm::MetadataManager> openForReading(const host::Path& place, Observer& observer);

}  // namespace operations
