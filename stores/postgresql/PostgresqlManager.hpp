/// The store "postgresql".
///
/// The content is in a database on a server, where any number of machines work on it at once; the core file says where.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <vector>

#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/Names.hpp"
#include "stores/postgresql/ServerProject.hpp"

namespace stores::postgresql {

/// One thread at a time may use a store. What each operation does is said at `MetadataManager`. All of them throw
/// `MetadataReadFailure` naming the core file, the server, the project and the cause, if the server cannot be asked or
/// says what no store writes; changing ones also what `ServerProject::change` and `TreeRules` throw.
class PostgresqlManager : public project::metadata::MetadataManager,
                          public project::metadata::DamageReporter,
                          public project::metadata::MetadataOptions,
                          public project::metadata::RemoteContent,
                          public project::metadata::StoreFileLister {
public:
    /// @param folder the metadata folder, which need not exist
    /// @param limit how long to wait for the server and for others
    /// @throws MetadataReadFailure
    PostgresqlManager(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit = lockLimit);

    void setNode(const MetadataPath& path, const MetadataNode& node) override;
    void removeNode(const MetadataPath& path) override;
    void addPath(const MetadataPath& path) override;
    void removePath(const MetadataPath& path) override { removePaths({path}); }
    std::unique_ptr<MetadataNode> getNode(const MetadataPath& path) const override;
    void setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) override;
    void removePaths(const std::vector<MetadataPath>& paths) override;
    bool hasNode(const MetadataPath& path) const override;
    std::vector<MetadataPath> getChildren(const MetadataPath& path) const override;
    bool hasPath(const MetadataPath& path) const override;
    void setPaths(const std::vector<MetadataPath>& paths) override;
    std::vector<MetadataDamage> findDamage() const override;
    std::vector<project::metadata::StoreFile> listFiles() const override;
    Path getNodeFile(const MetadataPath& /*path*/) const override { return {}; }
    std::vector<project::metadata::MetadataOption> getOptions() const override;
    void setOption(const std::u16string& name, const std::u16string& value) override;
    std::int64_t getContentVersion() const override;
    std::int64_t waitForChange(std::int64_t version, int descriptor, std::chrono::milliseconds limit) override;
    bool removeContent(std::int64_t version) override;

private:
    /// The row of `path`, of which the store's user knows then; null if it does not exist.
    const Row* findRow(const MetadataPath& path) const;

    /// @param told what becomes of it by that
    void change(const PathEdit& edit, ToldNodes::Change told);

    mutable ServerProject project_;
    mutable NodeDecoder decoder_;
};

}  // namespace stores::postgresql
