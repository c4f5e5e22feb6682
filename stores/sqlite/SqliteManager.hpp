/// The store "sqlite".
///
/// Everything but the core file is in one database, of which only what is asked for is read. So the time to open
/// a project, to read a node and to change one does not grow with the project.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "store_support/DamageTeller.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/NodeBlob.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/Names.hpp"
#include "stores/sqlite/Database.hpp"
#include "stores/sqlite/ReadAhead.hpp"

namespace stores::sqlite {

/// One thread at a time may use a store. What each operation does is said at `MetadataManager`. All of them throw
/// `MetadataReadFailure` for a damaged database; changing ones throw that too, and what `Database::change` and
/// `TreeRules` throw.
class SqliteManager : public project::metadata::MetadataManager,
                      public project::metadata::DamageReporter,
                      public project::metadata::StoreFileLister,
                      public project::metadata::PathRenamer,
                      public project::metadata::RepeatableReader {
public:
    /// @param folder the metadata folder, which need not exist
    /// @param limit how long to wait for another program
    /// @throws MetadataReadFailure naming the database, if it is none or of another version
    SqliteManager(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit = lockLimit);

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
    Path getNodeFile(const MetadataPath& /*path*/) const override { return database_.getFile(); }
    void renamePath(const MetadataPath& path, const PathElement& element) override;
    void beginReading() const noexcept override { database_.beginReading(); }
    void endReading() const noexcept override { database_.endReading(); }

private:
    /// What is at `path`, whose node counts as read then; null if it does not exist. Valid until the next operation.
    const ReadAhead::Entry* read(const MetadataPath& path) const;

    /// As those of `Database`. @param told what becomes of it by that
    void change(ToldNodes::Change told, const Edit& edit);
    bool changeExisting(ToldNodes::Change told, const Edit& edit);

    /// What was read ahead and still holds, as far as the last `Database::read` has seen.
    ReadAhead& getAhead() const;

    /// Tells of it once. @param version the batch that has changed the row last
    void tellDamage(const std::u16string& problem, std::int64_t version) const;

    mutable Database database_;
    mutable ReadAhead ahead_;
    mutable std::uint64_t generation_ = 0;  // of the database, in `ahead_`
    mutable store_support::NodeDecoder decoder_;
    mutable store_support::DamageTeller teller_;
};

}  // namespace stores::sqlite
