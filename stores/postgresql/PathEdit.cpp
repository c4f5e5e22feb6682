#include "stores/postgresql/PathEdit.hpp"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "host/Interruption.hpp"
#include "store_support/NodeBlob.hpp"
#include "store_support/Positions.hpp"
#include "store_support/TreeRules.hpp"

namespace stores::postgresql {

namespace {

/// Calls `visit` for the row `top` and all rows that lie below it by what they say of their parents, parents first.
template <class Visit>
void visitBelow(const PathId& top, const std::unordered_map<PathId, std::vector<const Row*>>& children,
                const Visit& visit) {
    std::vector<PathId> open{top};
    std::unordered_set<PathId> visited;
    while (!open.empty()) {
        const PathId id = open.back();
        open.pop_back();
        const auto found = children.find(id);
        if (found == children.end() || !visited.insert(id).second)
            continue;
        for (const Row* row : found->second) {
            visit(*row);
            open.push_back(row->id);
        }
    }
}

std::unordered_map<PathId, std::vector<const Row*>> groupByParent(const std::vector<Row>& rows) {
    std::unordered_map<PathId, std::vector<const Row*>> children;
    for (const Row& row : rows) {
        if (row.id != rootId)
            children[row.parent].push_back(&row);
    }
    return children;
}

/// The path of a row below others, as far as `rows` tell it.
/// @param known paths that are known otherwise
MetadataPath getPathBelow(const Row& row, const std::unordered_map<PathId, const Row*>& rows,
                          const std::unordered_map<PathId, MetadataPath>& known) {
    std::vector<PathElement> elements;
    const Row* step = &row;
    while (elements.size() < maximumSteps) {
        elements.push_back(step->element.value_or(PathElement(u"?", u"?")));
        if (const auto above = known.find(step->parent); above != known.end()) {
            const auto& first = above->second.getPath();
            elements.insert(elements.end(), first.rbegin(), first.rend());
            break;
        }
        const auto parent = rows.find(step->parent);
        if (parent == rows.end())
            break;
        step = parent->second;
    }
    std::reverse(elements.begin(), elements.end());
    return MetadataPath(std::move(elements));
}

}  // namespace

void PathEdit::refuse(const MetadataPath& path, const std::u16string& problem) const {
    raise<MetadataWriteFailure>(file_.text(), u"the path \"" + path.string() + u"\" in it " + problem);
}

void PathEdit::requireReplaceable(const Row& row, const SeenChanges& seen,
                                  const std::function<MetadataPath()>& getPath) const {
    if (!seen.isKnown(row.id, row.changed))
        refuse(getPath(), u"has been changed by somebody else since it was read; read it again first");
    if (row.node && !isNode(*row.node))
        refuse(getPath(), u"has a damaged node, which is neither overwritten nor removed before it is repaired");
}

void PathEdit::requireRemovable(const Row& row, const SeenChanges& seen,
                                const std::function<MetadataPath()>& getPath) const {
    if (!row.isSound())
        refuse(getPath(), u"is damaged: its row says that it is another one");
    requireReplaceable(row, seen, getPath);
}

void PathEdit::requireNotGone(const MetadataPath& path, std::size_t depth, const SeenChanges& seen) const {
    if (seen.isGone(path, depth))
        refuse(getAncestor(path, depth), seen.explainGone(path, depth));
}

const Row* PathEdit::find(const Answer& answer, const PathId& id, const MetadataPath& path) const {
    const auto found = answer.rows.find(id);
    if (found == answer.rows.end())
        return nullptr;
    if (!found->second.isSound())
        refuse(path, u"is damaged: its row says that it is another one");
    return &found->second;
}

void PathEdit::replaceNode(const Row& row, const NodeValue& node, const SeenChanges& seen, const MetadataPath& path,
                           RowChanges& changes) const {
    if (row.node == node)
        return;
    if (row.node)
        requireReplaceable(row, seen, [&] { return path; });
    else
        requireNotGone(path, path.getPath().size(), seen);
    changes.nodes.emplace_back(row.id, node);
}

NodesEdit::NodesEdit(std::vector<Entry> entries, Path file) : PathEdit(std::move(file)), entries_(std::move(entries)) {
    for (const Entry& entry : entries_) {
        requireStorable(entry.path, this->file());
        ids_.push_back(getIds(entry.path));
    }
}

Question NodesEdit::getQuestion() const {
    std::unordered_set<PathId> asked;
    std::unordered_set<PathId> parents;
    Question question;
    for (const std::vector<PathId>& ids : ids_) {
        for (std::size_t i = 0; i < ids.size(); ++i) {
            if (asked.insert(ids[i]).second)
                question.rows.push_back(ids[i]);
            if (i + 1 < ids.size() && parents.insert(ids[i]).second)
                question.positionsIn.push_back(ids[i]);
        }
    }
    return question;
}

RowChanges NodesEdit::apply(const Answer& answer, const SeenChanges& seen) const {
    RowChanges changes;
    std::unordered_map<PathId, std::size_t> added;  // the place in `changes.added`
    std::unordered_map<PathId, std::int64_t> last = answer.lastPositionsIn;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        host::Interruption::throwIfRequested();
        const Entry& entry = entries_[i];
        const std::vector<PathId>& ids = ids_[i];
        const Row* const row = find(answer, ids.back(), entry.path);
        requireSoundAncestors(answer, ids, entry.path, row != nullptr);
        if (row) {
            if (!entry.keepsNode)
                replaceNode(*row, entry.node, seen, entry.path, changes);
            continue;
        }
        const auto& elements = entry.path.getPath();
        for (std::size_t depth = 1; depth < ids.size(); ++depth) {
            if (answer.rows.count(ids[depth]) > 0 || !added.emplace(ids[depth], changes.added.size()).second)
                continue;
            requireNotGone(entry.path, depth, seen);
            const std::int64_t position = last[ids[depth - 1]] += positionGap;
            changes.added.push_back({ids[depth], ids[depth - 1], elements[depth - 1], position, std::nullopt});
        }
        if (!entry.keepsNode)
            changes.added[added.at(ids.back())].node = entry.node;
    }
    return changes;
}

void NodesEdit::requireSoundAncestors(const Answer& answer, const std::vector<PathId>& ids, const MetadataPath& path,
                                      bool exists) const {
    for (std::size_t depth = ids.size() - 1; depth > 0; --depth) {
        const Row* const above = find(answer, ids[depth - 1], path);
        if (exists && !above)
            refuse(path, u"is damaged: the row of a path above it is missing");
        exists = exists || above;
    }
}

Question NodeRemoval::getQuestion() const {
    Question question;
    question.rows = {id_};
    return question;
}

RowChanges NodeRemoval::apply(const Answer& answer, const SeenChanges& seen) const {
    RowChanges changes;
    host::Interruption::throwIfRequested();
    if (const Row* const row = find(answer, id_, path_))
        replaceNode(*row, std::nullopt, seen, path_, changes);
    return changes;
}

PathRemoval::PathRemoval(std::vector<MetadataPath> paths, Path file)
    : PathEdit(std::move(file)), paths_(std::move(paths)) {
    for (const MetadataPath& path : paths_)
        ids_.push_back(getId(path));
}

Question PathRemoval::getQuestion() const {
    Question question;
    question.rows = ids_;
    question.below = ids_;
    return question;
}

RowChanges PathRemoval::apply(const Answer& answer, const SeenChanges& seen) const {
    RowChanges changes;
    std::unordered_map<PathId, const Row*> rows;
    std::unordered_map<PathId, MetadataPath> known;
    for (const Row& row : answer.below)
        rows.emplace(row.id, &row);
    for (std::size_t i = 0; i < ids_.size(); ++i)
        known.emplace(ids_[i], paths_[i]);
    std::unordered_set<PathId> removed;
    const auto children = groupByParent(answer.below);
    const auto remove = [&](const Row& row) {
        if (!removed.insert(row.id).second)
            return;
        requireRemovable(row, seen, [&] { return getPathBelow(row, rows, known); });
        changes.removed.push_back(row.id);
    };
    for (std::size_t i = 0; i < ids_.size(); ++i) {
        host::Interruption::throwIfRequested();
        const Row* const row = find(answer, ids_[i], paths_[i]);
        if (!row)
            continue;
        visitBelow(ids_[i], children, remove);
        if (ids_[i] == rootId) {
            if (row->node && changes.nodes.empty())
                replaceNode(*row, std::nullopt, seen, paths_[i], changes);
        } else if (removed.insert(ids_[i]).second) {
            requireReplaceable(*row, seen, [&] { return paths_[i]; });
            changes.removed.push_back(ids_[i]);
        }
    }
    return changes;
}

Arrangement::Arrangement(const std::vector<MetadataPath>& paths, Path file)
    : PathEdit(std::move(file)),
      wanted_(paths),
      ids_(wanted_.getSize(), rootId),
      parents_(wanted_.getSize()),
      keepsRootNode_(std::find(paths.begin(), paths.end(), MetadataPath()) != paths.end()) {
    for (const MetadataPath& path : paths)
        requireStorable(path, this->file());
    for (std::size_t parent = 0; parent < wanted_.getSize(); ++parent) {
        for (const std::size_t child : wanted_.getChildren(parent)) {
            ids_[child] = getChildId(ids_[parent], wanted_.getElement(child));
            parents_[child] = parent;
        }
    }
}

Question Arrangement::getQuestion() const {
    Question question;
    question.rows = {rootId};
    question.allBut = ids_;
    return question;
}

MetadataPath Arrangement::getPath(std::size_t wanted) const {
    std::vector<PathElement> elements;
    for (; wanted != 0; wanted = parents_[wanted])
        elements.push_back(wanted_.getElement(wanted));
    std::reverse(elements.begin(), elements.end());
    return MetadataPath(std::move(elements));
}

RowChanges Arrangement::apply(const Answer& answer, const SeenChanges& seen) const {
    RowChanges changes;
    std::unordered_map<PathId, const Row*> rows;
    for (const Row& row : answer.all)
        rows.emplace(row.id, &row);
    std::unordered_map<PathId, std::size_t> wanted;
    for (std::size_t i = 0; i < ids_.size(); ++i)
        wanted.emplace(ids_[i], i);
    for (std::size_t parent = 0; parent < ids_.size(); ++parent) {
        host::Interruption::throwIfRequested();
        const auto& children = wanted_.getChildren(parent);
        std::vector<std::optional<std::int64_t>> now(children.size());
        bool areInOrder = true;
        std::optional<std::int64_t> last;
        for (std::size_t i = 0; i < children.size(); ++i) {
            const auto row = rows.find(ids_[children[i]]);
            if (row != rows.end()) {
                if (row->second->parent != ids_[parent])
                    refuse(getPath(children[i]), u"is damaged: its row says that it is another one");
                now[i] = row->second->position;
            }
            areInOrder = areInOrder && now[i] && (!last || *last < *now[i]);
            last = now[i];
        }
        if (areInOrder)
            continue;
        const std::vector<std::int64_t> positions = arrangePositions(now);
        for (std::size_t i = 0; i < children.size(); ++i) {
            const PathId& id = ids_[children[i]];
            if (!now[i]) {
                const MetadataPath path = getPath(children[i]);
                requireNotGone(path, path.getPath().size(), seen);
                changes.added.push_back({id, ids_[parent], path.getLeaf(), positions[i], std::nullopt});
            } else if (*now[i] != positions[i]) {
                changes.positions.emplace_back(id, positions[i]);
            }
        }
    }
    // Only what can be reached: rows that have no way to the root path are damage.
    visitBelow(rootId, groupByParent(answer.all), [&](const Row& row) {
        if (wanted.count(row.id) > 0)
            return;
        requireRemovable(row, seen, [&] {
            std::unordered_map<PathId, MetadataPath> known;
            for (std::size_t i = 0; i < ids_.size(); ++i)
                known.emplace(ids_[i], getPath(i));
            return getPathBelow(row, rows, known);
        });
        changes.removed.push_back(row.id);
    });
    if (!keepsRootNode_) {
        if (const Row* const root = find(answer, rootId, {}); root && root->node)
            replaceNode(*root, std::nullopt, seen, {}, changes);
    }
    return changes;
}

}  // namespace stores::postgresql
