/// The store "plain": all metadata of a project in one file, which every operation reads, and every change writes anew.
/// Simple and safe, and as slow as that for more than some hundred paths.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <cppmicroservices/BundleContext.h>

#include "PlainFile.hpp"
#include "project/metadata/FileJob.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"

namespace plain {

using project::metadata::MetadataNode;
using project::metadata::MetadataPath;

/// May be used by several threads at once.
class PlainFactory : public project::metadata::MetadataManagerFactory {
public:
    /// @param context where to look for a `FileJobManager`
    explicit PlainFactory(const cppmicroservices::BundleContext& context) : context_(context) {}

    std::unique_ptr<project::metadata::MetadataManager> createManager(const host::Path& root) override;
    bool canManage(const host::Path& root) override;
    std::u16string getName() override { return storeName; }
    std::u16string getDescription() override { return u"one plain file, to learn from"; }

private:
    cppmicroservices::BundleContext context_;
};

/// One thread at a time may use a store.
class PlainStore : public project::metadata::MetadataManager {
public:
    using JobRunner = std::function<void(project::metadata::FileJob job)>;

    PlainStore(const host::Path& root, const host::Path& file, JobRunner runJob);

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
    using Nodes = std::map<std::u16string, NodePointer>;  // by `makeKey`

    /// Carries out `edit` as one batch.
    void change(const std::function<void(Content& content)>& edit);

    /// The nodes that differ between `before` and `after`, as they are in `after`, null for those that are gone.
    /// @throws MetadataWriteFailure if somebody else changed one of them unseen
    Nodes findChanges(const Content& before, const Content& after) const;

    host::Path root_;
    host::Path file_;
    JobRunner runJob_;
    mutable Nodes seen_;  // each node as it was when this store was opened, or last read or wrote it
};

}  // namespace plain
