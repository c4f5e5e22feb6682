/// Changes to the paths of a project, worked out without a server: what has to be known for one, and what it then does
/// to the rows.
///
/// An edit does not change; it may be asked again about what others have made of the project meanwhile.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "store_support/SeenChanges.hpp"
#include "store_support/WantedTree.hpp"
#include "stores/Names.hpp"
#include "stores/postgresql/ProjectTable.hpp"

namespace stores::postgresql {

using SeenChanges = store_support::SeenChanges<PathId>;

class PathEdit {
public:
    virtual ~PathEdit() = default;

    PathEdit(const PathEdit&) = delete;
    PathEdit& operator=(const PathEdit&) = delete;

    /// Whether it makes the project if there is none.
    virtual bool makesProject() const { return false; }

    /// What has to be known for it.
    virtual Question getQuestion() const = 0;

    /// What it does where that is so.
    /// @throws MetadataWriteFailure naming the file and the path, if a node would be replaced or a
    ///         path removed that somebody else has changed unseen, or that is damaged, if a path would be added or a
    ///         node set where somebody else has removed a node unseen, or if a path has too many steps;
    ///         host::InterruptedException
    virtual RowChanges apply(const Answer& answer, const SeenChanges& seen) const = 0;

protected:
    /// @param file the file to name in errors
    explicit PathEdit(Path file) : file_(std::move(file)) {}

    const Path& file() const noexcept { return file_; }

    [[noreturn]] void refuse(const MetadataPath& path, const std::u16string& problem) const;

    /// @param getPath tells the path of the row, as far as it is known
    void requireReplaceable(const Row& row, const SeenChanges& seen,
                            const std::function<MetadataPath()>& getPath) const;
    void requireRemovable(const Row& row, const SeenChanges& seen, const std::function<MetadataPath()>& getPath) const;

    void requireNotGone(const MetadataPath& path, std::size_t depth, const SeenChanges& seen) const;

    /// The row of `path`, whose number is `id`; null if there is none.
    const Row* find(const Answer& answer, const PathId& id, const MetadataPath& path) const;

    /// Replaces the node of a row, unless it is the same.
    void replaceNode(const Row& row, const NodeValue& node, const SeenChanges& seen, const MetadataPath& path,
                     RowChanges& changes) const;

private:
    Path file_;
};

/// Adds paths, and gives nodes to them or takes those away.
class NodesEdit final : public PathEdit {
public:
    struct Entry {
        MetadataPath path;
        NodeValue node;
        bool keepsNode;  ///< whether the node of a path that exists stays
    };

    NodesEdit(std::vector<Entry> entries, Path file);

    bool makesProject() const override { return !entries_.empty(); }
    Question getQuestion() const override;
    RowChanges apply(const Answer& answer, const SeenChanges& seen) const override;

private:
    /// @param exists whether the path itself does
    void requireSoundAncestors(const Answer& answer, const std::vector<PathId>& ids, const MetadataPath& path,
                               bool exists) const;

    std::vector<Entry> entries_;
    std::vector<std::vector<PathId>> ids_;  // of the ancestors of each and of itself
};

/// Takes the node of a path away.
class NodeRemoval final : public PathEdit {
public:
    NodeRemoval(MetadataPath path, Path file) : PathEdit(std::move(file)), path_(std::move(path)), id_(getId(path_)) {}

    Question getQuestion() const override;
    RowChanges apply(const Answer& answer, const SeenChanges& seen) const override;

private:
    MetadataPath path_;
    PathId id_;
};

/// Removes paths with all that is below them; of the root path, only that and its node.
class PathRemoval final : public PathEdit {
public:
    PathRemoval(std::vector<MetadataPath> paths, Path file);

    Question getQuestion() const override;
    RowChanges apply(const Answer& answer, const SeenChanges& seen) const override;

private:
    std::vector<MetadataPath> paths_;
    std::vector<PathId> ids_;
};

/// Makes certain paths and their ancestors the whole content, in their order.
class Arrangement final : public PathEdit {
public:
    /// @param paths must outlive the object
    Arrangement(const std::vector<MetadataPath>& paths, Path file);

    bool makesProject() const override { return true; }
    Question getQuestion() const override;
    RowChanges apply(const Answer& answer, const SeenChanges& seen) const override;

private:
    MetadataPath getPath(std::size_t wanted) const;

    WantedTree wanted_;
    std::vector<PathId> ids_;           // by the index in `wanted_`
    std::vector<std::size_t> parents_;  // likewise
    bool keepsRootNode_;
};

}  // namespace stores::postgresql
