/// The store "fixedPath".
///
/// Everything is read from disk when it is asked for, and kept in memory as long as its file does not change, so two
/// stores on one project see each other's changes.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/fixed_path/PathFileChange.hpp"
#include "stores/fixed_path/PathFiles.hpp"

namespace stores::fixed_path {

/// One thread at a time may use a store. What each operation does is said at `MetadataManager`. A path with a damaged
/// file exists without a node; `getNode` throws `MetadataReadFailure` naming the file. Where the file only holds
/// something foreign besides, the node is read. Changing operations throw what `PathFileChange`, `FileBatch` and
/// `TreeRules` throw; all operations what `settle` throws.
///
/// Whether somebody else has changed a node is told by its file (SeenFiles.hpp), so a new rank in it counts as a change
/// too. New permissions and further names of a file that was read do not; of one that was not, they cannot be told from
/// a change.
class FixedPathManager : public project::metadata::MetadataManager,
                         public project::metadata::DamageReporter,
                         public project::metadata::PathFileLister,
                         public project::metadata::PathRenamer,
                         public project::metadata::RepeatableReader,
                         public project::metadata::WholeContentWriter {
public:
    /// @param folder the metadata folder, which need not exist
    FixedPathManager(const host::Path& folder, store_support::JobRunner runJob);

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
    std::vector<project::metadata::MetadataDamage> findDamage() const override;
    std::vector<project::metadata::StoreFile> listFiles() const override;
    host::Path getNodeFile(const project::metadata::MetadataPath& path) const override;
    host::Path getChildFolder(const project::metadata::MetadataPath& path) const override;
    bool hasLossIn(const host::Path& entry) const override;
    std::string getFingerprint(const project::metadata::MetadataPath& path) const override;
    std::string getFingerprintOfRead(const project::metadata::MetadataPath& path) const override;
    void renamePath(const project::metadata::MetadataPath& path,
                    const project::metadata::PathElement& element) override;
    void beginReading() const noexcept override { files_.beginReading(); }
    void endReading() const noexcept override { files_.endReading(); }
    void beginContent() noexcept override { content_.emplace(); }
    void endContent() noexcept override { content_.reset(); }

private:
    /// What `setNodes` was given, one after the other.
    using Content =
        std::vector<std::pair<project::metadata::MetadataPath, std::shared_ptr<project::metadata::MetadataNode>>>;

    /// What the file of `path` says for the user of this store; null if it does not exist.
    PathFilePtr read(const project::metadata::MetadataPath& path, Extent extent) const;

    /// Whether the user of this store has to be noted to know the file that says `content`, when he learns that its
    /// path exists: of a branch there is no more to know.
    bool isNewBranch(const PathFile& content) const;

    /// The children of `place`, without a change in between.
    Listing readChildren(const PathFiles::Place& place) const;

    /// Carries out what `collect` asks for, if that changes anything. It is called twice: once without the lock, to see
    /// whether there is anything to do.
    /// @param told what becomes of it by that
    void change(store_support::ToldNodes::Change told, const std::function<void(PathFileChange&)>& collect);

    mutable PathFiles files_;  // reading notes in it what the user of the store has seen
    mutable store_support::ToldNodes told_;
    store_support::JobRunner runJob_;
    std::optional<Content> content_;  // between `beginContent` and the next `setPaths`
};

}  // namespace stores::fixed_path
