/// The store "plain": all metadata of a project in one file, which every operation reads, and every change writes anew.
/// Simple and safe, and as slow as that for more than some hundred paths.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "PlainFile.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "store_support/StoreFactory.hpp"

namespace plain {

using project::metadata::MetadataNode;
using project::metadata::MetadataPath;

/// What the plug-in offers.
store_support::StoreKind describe();

/// One thread at a time may use a store.
class PlainStore : public project::metadata::MetadataManager {
public:
    /// @param folder the metadata folder, which need not exist
    PlainStore(const host::Path& folder, store_support::JobRunner runJob);

    void setNode(const MetadataPath& path, const MetadataNode& node) override;
    void removeNode(const MetadataPath& path) override;
    void addPath(const MetadataPath& path) override;
    void removePath(const MetadataPath& path) override;
    std::unique_ptr<MetadataNode> getNode(const MetadataPath& path) const override;
    void setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) override;
    void removePaths(const std::vector<MetadataPath>& paths) override;
    bool hasNode(const MetadataPath& path) const override;
    std::vector<MetadataPath> getChildren(const MetadataPath& path) const override;
    bool hasPath(const MetadataPath& path) const override;
    void setPaths(const std::vector<MetadataPath>& paths) override;

private:
    /// By the steps of their paths: texts of different paths may be the same.
    using Nodes = std::map<std::vector<project::metadata::PathElement>, NodePointer>;

    static Nodes listNodes(const Content& content);

    /// Carries out `edit` as one batch.
    void change(const std::function<void(Content& content)>& edit);

    /// The nodes that differ between `before` and `after`, as they are in `after`, null for those that are gone, and
    /// for paths without a node that are new.
    /// @throws MetadataWriteFailure if somebody else changed one of them unseen
    Nodes findChanges(const Content& before, const Content& after) const;

    host::Path file_;
    store_support::JobRunner runJob_;
    mutable Nodes seen_;  // each node as it was when this store was opened, or last read or wrote it
};

}  // namespace plain
