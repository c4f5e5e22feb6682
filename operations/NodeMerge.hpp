/// The three-way merge of nodes: what two sides, "ours" and "theirs", have made of one base.
///
/// A change of one side is taken. Where both have changed the same thing differently, that is a conflict: ours is kept,
/// or what one side has changed and the other removed, and the node in question gets a child node that says so:
///
///     <Conflict Base="10" Key="Size" Ours="12" Theirs="15" What="attribute"/>
///     <Conflict Base="Info" Ours="Data" Theirs="Item" What="name"/>
///     <Conflict RemovedBy="theirs" What="removed"/>
///
/// A value that is not there is left out. Whoever has settled it removes the child node.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "operations/MetadataTree.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace operations {

/// The name of the child node that marks a conflict.
extern const std::u16string conflictName;

using Text = std::optional<std::u16string>;

struct Conflict {
    enum class What { attribute, name, removed };

    What what;
    project::metadata::MetadataPath path;
    std::u16string node;      ///< which node below that of the path, such as "Item[2]/Info"; empty for the path's own
    std::u16string key;       ///< of the attribute
    Text base, ours, theirs;  ///< the attribute's values or the node's names; of what was removed, the side that kept
                              ///< it has the text "changed"
};

/// The value of three; `isConflict` is set if both sides have changed it differently.
Text mergeText(const Text& base, const Text& ours, const Text& theirs, bool& isConflict);

/// The order of things that are known by numbers, given their order in the base and on both sides. All that is on
/// either side is in it: in the order of ours, or of theirs if only they have changed the order, and what only the
/// other side has comes after what it follows there.
std::vector<std::size_t> mergeOrder(const std::vector<std::size_t>& base, const std::vector<std::size_t>& ours,
                                    const std::vector<std::size_t>& theirs);

class NodeMerge {
public:
    /// The merged node of `path`. Any of the three may be null, where it has no node; so is the result.
    NodePtr merge(const project::metadata::MetadataPath& path, const NodePtr& base, const NodePtr& ours,
                  const NodePtr& theirs);

    /// Notes `conflict`, which is about `path` as a whole. @return `node`, or a new one, with the mark of it
    NodePtr mark(Conflict conflict, const NodePtr& node);

    std::vector<Conflict> takeConflicts() { return std::move(conflicts_); }

private:
    using Node = project::metadata::MetadataNode;

    void mergeInto(Node& result, const Node* base, const Node& ours, const Node& theirs);
    void mergeName(Node& result, const Node* base, const Node& ours, const Node& theirs);
    void mergeChildren(Node& result, const Node* base, const Node& ours, const Node& theirs);
    void markIn(Node& node, Conflict conflict);

    project::metadata::MetadataPath path_;
    std::vector<std::u16string> names_;  // of the nodes on the way down from that of the path
    std::vector<Conflict> conflicts_;
};

}  // namespace operations
