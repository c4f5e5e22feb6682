/// The store "monolithic".
///
/// The whole content is kept in memory and read again when the file has changed on disk, so two stores on one project
/// see each other's changes. Every change writes the file; it is complete when the operation returns.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_support/FileWatch.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/Names.hpp"
#include "stores/monolithic/SharedTree.hpp"

namespace stores::monolithic {

extern const std::u16string& monolithicName;

/// A new content, before it is written.
struct Draft {
    SharedTree tree;
    bool isChanged = false;
    bool makesProject = false;  ///< if there is none, even of no content
};

/// One thread at a time may use a store. What each operation does is said at `MetadataManager`. All of them throw
/// `MetadataReadFailure` if the file cannot be read as XML. Of what is damaged inside, the rest is read; a path with a
/// damaged node reads as a branch, but `getNode` throws that too. Changing ones throw `MetadataWriteFailure` for a file
/// that is damaged in any way, and what `FileBatch` and `TreeRules` throw.
class MonolithicManager : public project::metadata::MetadataManager,
                          public project::metadata::DamageReporter,
                          public project::metadata::StoreFileLister,
                          public project::metadata::PathRenamer,
                          public project::metadata::WholeContentWriter {
public:
    /// @param folder the metadata folder, which need not exist
    /// @throws MetadataReadFailure if the file cannot be read as XML
    MonolithicManager(const Path& folder, JobRunner runJob);

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
    Path getNodeFile(const MetadataPath& /*path*/) const override { return file_; }
    void renamePath(const MetadataPath& path, const PathElement& element) override;
    void beginContent() noexcept override { content_.emplace(); }
    void endContent() noexcept override { content_.reset(); }

private:
    /// Between `beginContent` and the next `setPaths`.
    struct Content {
        std::optional<SharedTree> tree;                   // with the nodes that were put aside; none if none were
        std::optional<store_support::FileVersion> basis;  // the version of the file that it was made of
    };

    /// Makes the new content of the old.
    using Edit = std::function<Draft(const SharedTree& old)>;

    /// Puts `nodes` aside, on top of what is on disk.
    void putAside(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes);

    /// Carries out `edit`, and writes the file if that changed something or there is none yet.
    void change(const Edit& edit);

    /// The content as it is on disk, in which what the user of the store has seen is marked.
    SharedTree& load() const;

    /// What is at `path`, of which the user of the store knows then; null if it does not exist.
    const SharedTree* look(const MetadataPath& path) const;

    void requireSound() const;

    /// That no node comes back by `draft` that somebody else has removed unseen.
    void requireNothingGone(const Draft& draft) const;
    void save(Draft draft, FolderLock& lock);

    Path folder_;
    Path file_;
    JobRunner runJob_;
    mutable FileWatch watch_;                     // of the file that `tree_` was read from or written to
    mutable std::optional<SharedTree> tree_;      // none until it is read first, or for lack of memory
    mutable bool hasLostSight_ = false;           // then nobody knows any more what the user has seen
    mutable std::vector<MetadataDamage> damage_;  // of that file

    /// Steps to nodes that somebody else has removed, or changed and may remove, and nobody has asked for since.
    mutable std::set<std::vector<PathElement>> gone_;

    std::optional<Content> content_;
};

}  // namespace stores::monolithic
