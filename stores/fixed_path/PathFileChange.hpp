/// A change to a "fixedPath" store: collected first, then carried out as one batch.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "store_support/ChildNumbers.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreFactory.hpp"
#include "store_support/ToldNodes.hpp"
#include "store_support/WantedTree.hpp"
#include "stores/fixed_path/PathFiles.hpp"

namespace stores::fixed_path {

/// Damaged files are left as they are: an operation that would overwrite or remove one throws `MetadataWriteFailure`.
///
/// A change of a million paths is one, so of each there is little here: neither the name of its file nor the node that
/// it has, which is read again when the file is written.
class PathFileChange {
public:
    enum class Mode {
        look,  ///< only to find out whether there is anything to change
        write
    };

    /// @param files what is there
    /// @param told which nodes the user of the store takes to be there; both must outlive the change
    PathFileChange(PathFiles& files, const store_support::ToldNodes& told, Mode mode);

    // Nodes must live as long as the change.

    /// Adds `path` and its missing ancestors, each as the last child of its parent.
    void add(const project::metadata::MetadataPath& path);

    /// Adds `path` as `add`, and gives it a copy of `node`, or takes its node away if that is null.
    /// @throws project::metadata::MetadataWriteFailure if the node could not be read back
    void setNode(const project::metadata::MetadataPath& path, const project::metadata::MetadataNode* node);

    /// Takes the node of `path` away, if it exists.
    void removeNode(const project::metadata::MetadataPath& path);

    /// Removes `path` with everything below it, if it exists. Not together with other changes.
    void remove(const project::metadata::MetadataPath& path);

    /// Gives `path` another last step, as `PathRenamer` says. Not together with other changes.
    void rename(const project::metadata::MetadataPath& path, const project::metadata::PathElement& element);

    /// Makes `paths` and their ancestors the whole content, in that order. Damaged files that do not tell which path
    /// they belong to stay. Not together with other changes, but for `setNode` of those paths after it.
    /// @param wanted what `paths` amount to
    void arrange(const std::vector<project::metadata::MetadataPath>& paths, const store_support::WantedTree& wanted);

    /// Whether this only looks, and has found something to change: there is nothing more to find out.
    bool isDecided() const noexcept { return mode_ == Mode::look && !isEmpty(); }

    /// Whether there is nothing to change.
    bool isEmpty() const noexcept { return writes_.empty() && removals_.empty(); }

    /// Carries it out and lets go of the lock.
    /// @param lock the lock of the metadata folder, held since before the first operation
    /// @throws project::metadata::MetadataWriteFailure if somebody else has changed a node that would be replaced or a
    ///         path that would be removed, or has removed one that would be set or whose path would be added, and the
    ///         user of this store does not know it
    void commit(const store_support::JobRunner& runJob, store_support::FolderLock& lock);

private:
    using Index = std::size_t;

    /// A path whose file has been looked at, and what is to become of that.
    struct Item {
        Index parent;
        project::metadata::PathElement element;
        Rank rank;
        std::shared_ptr<const project::metadata::MetadataNode> newNode = nullptr;  // if it gets one
        store_support::FileVersion old{};                                          // of the file, if it exists
        store_support::FileVersion staged{};                                       // of its new content
        bool exists = false;
        bool isDamaged = false;
        bool hasNode = false;    // what it says now
        bool keepsNode = false;  // whether the new content has the node of the old
        bool isWritten = false;
        bool replacesNode = false;
        bool isSeen = false;                           // whether the user knows what is replaced
        std::optional<bool> hasFolder = std::nullopt;  // for its children, if that has been looked for

        bool isThere() const noexcept { return exists || isWritten; }
    };

    struct Removal {
        host::Path file;
        store_support::FileVersion version;
    };

    static constexpr Index rootItem = 0;

    /// The child `element` of the path `parent`, whose file is looked at if it has not been yet.
    Index find(Index parent, const project::metadata::PathElement& element);

    /// As `find` for the step `element` of a path, behind the first `depth` steps, which have been followed before.
    Index follow(std::size_t depth, const project::metadata::PathElement& element);

    /// The path `path`, if its file and those of its ancestors exist or will.
    std::optional<Index> find(const project::metadata::MetadataPath& path);

    /// The path `path`, which is added with its missing ancestors.
    Index addPath(const project::metadata::MetadataPath& path);

    /// Notes in the item `index` what its file says: `content`, null if it does not exist.
    void look(Index index, const PathFilePtr& content);

    /// The node of the file of `index`, null if there is none.
    std::shared_ptr<const project::metadata::MetadataNode> readNode(Index index);

    project::metadata::MetadataPath getPath(Index index) const;

    /// Whether there may be files of children: mostly they come with that of their parent.
    bool hasFolder(Index index);

    /// Both are valid until the next item is asked about.
    const host::Path& getFile(Index index);
    const host::Path& getFolder(Index index);

    /// Notes that the file of `index` is to be written.
    void write(Index index);

    void setNode(Index index, const project::metadata::MetadataNode* newNode);

    /// Notes that the file `file` goes, if it exists.
    void removeFile(const host::Path& file);

    /// As `removeFile` for all files in `folder` and below that tell which path they belong to.
    void removeNamedFiles(const host::Path& folder);

    void requireSeen();

    /// After a change that failed, for old files that have come back as copies.
    void keepSeen(const std::vector<host::Path>& files) noexcept;

    /// After a change that succeeded.
    /// @param files what was written, in the order of `writes_`
    void noteDone(std::vector<host::Path> files) noexcept;

    /// Makes what `wanted` has below `parent` the content of the folder of `index`.
    void arrangeFolder(const store_support::WantedTree& wanted, store_support::WantedTree::Index parent, Index index);

    /// The same for the order of the children only, without those that are not wanted.
    /// @param names of the folders of the children that are wanted
    void arrangeChildren(const store_support::WantedTree& wanted, store_support::WantedTree::Index parent, Index index,
                         const std::vector<std::u16string>& names);

    /// The rank after all children of `parent`.
    Rank makeLastRank(Index parent);

    /// @param file that of `index`
    void writeStaged(Index index, const host::Path& file, const host::Path& staged);

    PathFiles& files_;
    const store_support::ToldNodes& told_;
    Mode mode_;
    std::deque<Item> items_;  // they do not move: `index_` points to their elements
    store_support::ChildNumbers index_;
    std::vector<Index> walk_{rootItem};  // to the path that was followed last, which mostly begins like the next one
    std::vector<Index> writes_;          // in the order in which they were asked for
    std::vector<Removal> removals_;
    std::unordered_map<Index, Rank> lastRanks_;  // by the parent
    std::pair<Index, host::Path> lastFolder_;    // of the item that was asked for last
    std::pair<Index, host::Path> lastFile_;      // likewise
    std::pair<Index, PathFilePtr> lastContent_;  // likewise
};

}  // namespace stores::fixed_path
