/// Several changes of a project as one, worked out before anything is written.
///
/// One thread at a time, as the stores.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "operations/Library.hpp"
#include "operations/NodeAddress.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/Progress.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

class EditedPaths;

/// What `ProjectEdit::set` may make.
struct SetRequest {
    bool create = false;                     ///< the path, and child nodes on the way, if they are missing
    std::optional<std::u16string> nodeName;  ///< of a path's node that is made; one that exists must have this name
};

/// Where `ProjectEdit::add` puts what it adds; by default it is the last.
struct Place {
    enum class Side { before, after };

    NodeAddress sibling;
    Side side;
};

/// Each change sees what those before it have made of the project. Errors are OperationErrors and whatever the store
/// throws; after one, the object can only be destroyed.
class ProjectEdit {
public:
    /// @param store is only read, but for `apply`; both must outlive the object
    ProjectEdit(pm::MetadataManager& store, Observer& observer);
    ~ProjectEdit();

    /// Gives the node at `address` attributes. The node of a path that has none is made.
    /// @param changes each with a value
    void set(const NodeAddress& address, const AttributeChanges& changes, const SetRequest& request);

    /// Takes the attributes `keys` from the node at `address`, unless it lacks some of them.
    /// @return those that it lacks
    std::vector<std::u16string> unset(const NodeAddress& address, const std::vector<std::u16string>& keys);

    /// Adds a path, with its missing ancestors, or one more child node, in a node that is made if it is missing.
    /// @return its address
    NodeAddress add(const NodeAddress& address, const std::optional<Place>& place);

    /// Removes a path with everything below it, or a child node. The root path loses its node and everything below.
    void remove(const NodeAddress& address);

    /// Removes the node of a path.
    void removeNode(const pm::MetadataPath& path);

    /// Moves a path with everything below it. Below the same parent it keeps its place, elsewhere it becomes the last.
    void move(const pm::MetadataPath& from, const pm::MetadataPath& to);

    /// Copies a path with everything below it; the copy becomes the last.
    void copy(const pm::MetadataPath& from, const pm::MetadataPath& to);

    bool hasPath(const pm::MetadataPath& path);

    /// Whether there is a node at `address`.
    bool hasNode(const NodeAddress& address);

    /// All changes so far.
    StoreChange finish();

    /// Makes `change`, which `finish` has returned, as `applyOrTakeBack` does.
    void apply(const StoreChange& change);

private:
    struct Content;

    Content& contentOf(const pm::MetadataPath& path);
    NodeDraft& editNode(const pm::MetadataPath& path);
    NodeDraft& requireNode(const NodeAddress& address);
    NodeDraft& makeNode(const NodeAddress& address);
    NodeAddress addChild(const NodeAddress& address, const std::optional<Place>& place);
    bool canRename(const pm::MetadataPath& from, const pm::MetadataPath& to) const;
    void settleRenaming();
    void moveInTree(const pm::MetadataPath& from, const pm::MetadataPath& to);
    bool moveLeaf(const pm::MetadataPath& from, const pm::MetadataPath& to);
    void requirePath(const pm::MetadataPath& path, const std::string& advice = {});
    void requireTarget(const pm::MetadataPath& from, const pm::MetadataPath& to, const std::string& verb);
    std::function<void(const pm::MetadataPath& from, const pm::MetadataPath& to)> copyNode();
    void setNode(const pm::MetadataPath& path, const NodePtr& node);

    pm::MetadataManager& store_;
    std::map<pm::MetadataPath, Content, BySteps> contents_;  // of paths that were looked at
    // What was moved first, as long as that is all: the store can do it by itself.
    std::optional<std::pair<pm::MetadataPath, pm::MetadataPath>> renaming_;
    std::unique_ptr<EditedPaths> paths_;
};

}  // namespace operations
