/// The three-way merge of nodes: what two sides, "ours" and "theirs", have made of one base.
///
/// A change of one side is taken. Where both have changed the same thing differently, that is a conflict: ours is kept,
/// or what one side has changed and the other removed, and the node in question gets a child node that says so:
///
///     <Conflict Base="10" Key="Size" Ours="12" Theirs="15" What="attribute"/>
///     <Conflict Base="Info" Ours="Data" Theirs="Item" What="name"/>
///     <Conflict RemovedBy="theirs" What="removed"/>
///     <Conflict Name="Item" What="children"/>
///     <Conflict What="order"/>
///     <Conflict Base="File:a.c" Ours="File:b.c" Theirs="File:a.c" What="path"/>
///
/// "children": both have changed child nodes of that name, and it rests on their position alone who is who
/// (NodeMatch.hpp); those of both sides are kept. "order": both have put the child nodes, or the paths below this one,
/// into other orders, and there is none that agrees with both. "path": the three are not versions of one path.
///
/// A value that is not there is left out. Whoever has settled it removes the child node.
///
/// One thread at a time may use an object.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "operations/MetadataTree.hpp"

namespace operations {

/// The name of the child node that marks a conflict.
extern const std::u16string conflictName;

/// The key of an attribute of a mark that says that the path had no node, before one was made for the mark.
extern const std::u16string madeForMarkKey;

using Text = std::optional<std::u16string>;

struct Conflict {
    enum class What { attribute, name, removed, children, order, path };

    What what;
    pm::MetadataPath path;
    std::u16string node;      ///< which node below that of the path, such as "Item[2]/Info"; empty for the path's own
    std::u16string key;       ///< of the attribute, or the name of the child nodes
    Text base, ours, theirs;  ///< the attribute's values, the node's names or the last steps of the paths; of what was
                              ///< removed, the side that kept it has the text "changed"
};

/// That one side has changed `path`, or a node in it, and the other has removed that.
inline Conflict makeRemoval(const pm::MetadataPath& path, bool isOurs) {
    const Text changed = u"changed";
    return {Conflict::What::removed, path, {}, {}, {}, isOurs ? changed : Text(), isOurs ? Text() : changed};
}

/// "attribute" and so on, as it stands in the mark.
const char16_t* nameOfConflict(Conflict::What what);

/// The value of three; `isConflict` is set if both sides have changed it differently.
Text mergeText(const Text& base, const Text& ours, const Text& theirs, bool& isConflict);

class NodeMerge {
public:
    /// The merged node of `path`. Any of the three may be null, where it has no node; so is the result.
    NodePtr merge(const pm::MetadataPath& path, const NodePtr& base, const NodePtr& ours, const NodePtr& theirs);

    /// Notes `conflict`, which is about `path` as a whole. @return `node`, or a new one, with the mark of it
    NodePtr mark(Conflict conflict, const NodePtr& node);

    std::vector<Conflict> takeConflicts() { return std::move(conflicts_); }

private:
    using Node = pm::MetadataNode;

    void mergeInto(Node& result, const Node* base, const Node& ours, const Node& theirs);
    void mergeName(Node& result, const Node* base, const Node& ours, const Node& theirs);
    void mergeChildren(Node& result, const Node* base, const Node& ours, const Node& theirs,
                       std::vector<Conflict>& found);
    void markIn(Node& node, Conflict conflict);

    pm::MetadataPath path_;
    std::vector<std::u16string> names_;  // of the nodes on the way down from that of the path
    std::vector<Conflict> conflicts_;
};

}  // namespace operations
