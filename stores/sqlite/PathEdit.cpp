#include "stores/sqlite/PathEdit.hpp"

#include <algorithm>
#include <optional>

#include "host/Interruption.hpp"
#include "store_support/NodeBlob.hpp"
#include "store_support/Positions.hpp"
#include "store_support/Renaming.hpp"
#include "store_support/WantedTree.hpp"

namespace stores::sqlite {

using project::metadata::MetadataPath;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;
using store_support::arrangePositions;
using store_support::isNode;
using store_support::WantedTree;

namespace {

/// The children of one path, as they are and as they are to be.
struct Siblings {
    std::vector<RowId> unwanted;
    std::vector<std::optional<RowId>> rows;              ///< of the wanted ones, in their order; no value for new ones
    std::vector<std::optional<std::int64_t>> positions;  ///< likewise

    /// Whether all of the wanted ones exist in this order.
    bool areInOrder() const {
        std::optional<std::int64_t> last;
        for (const auto& position : positions) {
            if (!position || (last && *position <= *last))
                return false;
            last = position;
        }
        return true;
    }
};

/// @param existing the present children of the path `parent`
/// @param place room for a number for each wanted path
Siblings match(const WantedTree& wanted, WantedTree::Index parent, const std::vector<ChildRow>& existing,
               std::vector<std::size_t>& place) {
    const auto& children = wanted.getChildren(parent);
    Siblings siblings;
    siblings.rows.resize(children.size());
    siblings.positions.resize(children.size());
    for (std::size_t i = 0; i < children.size(); ++i)
        place[children[i]] = i;
    for (const ChildRow& row : existing) {
        if (const auto index = wanted.find(parent, row.element)) {
            siblings.rows[place[*index]] = row.id;
            siblings.positions[place[*index]] = row.position;
        } else {
            siblings.unwanted.push_back(row.id);
        }
    }
    return siblings;
}

}  // namespace

bool PathEdit::add(const MetadataPath& path) {
    return !table_.find(path) && setNode(path, std::nullopt);
}

bool PathEdit::setNode(const MetadataPath& path, const NodeValue& node) {
    host::Interruption::throwIfRequested();
    if (const auto id = table_.find(path))
        return replaceNode(*id, node, path);
    requireNothingGone(path);
    if (!isLooking())
        table_.add(path, node, batch_);
    return true;
}

bool PathEdit::removeNode(const MetadataPath& path) {
    const auto id = table_.find(path);
    return id && replaceNode(*id, std::nullopt, path);
}

bool PathEdit::remove(const MetadataPath& path) {
    const auto id = table_.find(path);
    if (!id)
        return false;
    const bool isRoot = *id == rootRow;
    if (isRoot && !table_.hasChildren(*id))
        return replaceNode(*id, std::nullopt, path);
    if (isLooking())
        return true;
    if (isRoot)
        replaceNode(*id, std::nullopt, path);
    removeBelow(*id);
    return true;
}

bool PathEdit::rename(const MetadataPath& path, const PathElement& element) {
    const MetadataPath target = replaceLeaf(path, element);
    const auto id = table_.find(path);
    const Renaming found{id.has_value(), id && table_.hasChildren(*id), table_.find(target).has_value()};
    if (!requireRenamable(path, target, found, table_.getFile()))
        return false;
    requireReplaceable(*id, table_.getRow(*id));
    requireNotGone(target, target.getPath().size());
    if (!isLooking())
        table_.setElement(*id, element, batch_);
    return true;
}

bool PathEdit::arrange(const std::vector<MetadataPath>& paths) {
    for (const MetadataPath& path : paths)
        requireNothingGone(path);
    const WantedTree wanted(paths);
    std::vector<RowId> rows(wanted.getSize(), rootRow);
    std::vector<bool> isNew(wanted.getSize());
    std::vector<std::size_t> place(wanted.getSize());
    bool changed = false;
    for (WantedTree::Index parent = 0; parent < wanted.getSize(); ++parent) {
        host::Interruption::throwIfRequested();
        const auto existing = isNew[parent] ? std::vector<ChildRow>() : table_.getChildren(rows[parent]);
        const Siblings siblings = match(wanted, parent, existing, place);
        const bool areInOrder = siblings.areInOrder();
        changed = changed || !areInOrder || !siblings.unwanted.empty();
        if (changed && isLooking())
            return true;
        for (const RowId id : siblings.unwanted)
            removeBelow(id);
        const auto& children = wanted.getChildren(parent);
        const auto positions = areInOrder ? std::vector<std::int64_t>() : arrangePositions(siblings.positions);
        for (std::size_t i = 0; i < children.size(); ++i) {
            const auto id = siblings.rows[i];
            isNew[children[i]] = !id;
            rows[children[i]] =
                id ? *id
                   : table_.insert(rows[parent], wanted.getElement(children[i]), positions[i], std::nullopt, batch_);
            if (id && !areInOrder && siblings.positions[i] != positions[i])
                table_.setPosition(*id, positions[i]);
        }
    }
    if (std::find(paths.begin(), paths.end(), MetadataPath()) == paths.end())
        changed = replaceNode(rootRow, std::nullopt, {}) || changed;
    return changed;
}

bool PathEdit::replaceNode(RowId id, const NodeValue& node, const MetadataPath& path) {
    const Row row = table_.getRow(id);
    if (row.node == node)
        return false;
    if (row.node)
        requireReplaceable(id, row);
    else
        requireNotGone(path, path.getPath().size());
    if (!isLooking())
        table_.setNode(id, node, batch_);
    return true;
}

void PathEdit::removeBelow(RowId id) {
    table_.visitBelow(id, [this](RowId below, const Row& row) {
        if (below != rootRow)
            requireReplaceable(below, row);
    });
    table_.removeBelow(id);
}

void PathEdit::requireReplaceable(RowId id, const Row& row) const {
    if (!seen_.isKnown(id, row.changed))
        refuse(table_.getPath(id), u"has been changed by somebody else since it was read; read it again first");
    if (row.node && !isNode(*row.node)) {
        refuse(table_.getPath(id),
               u"has a damaged node, which is neither overwritten nor removed before it is repaired");
    }
}

void PathEdit::requireNothingGone(const MetadataPath& path) const {
    for (std::size_t depth = path.getPath().size(); depth > 0; --depth) {
        if (seen_.isGone(path, depth) && !table_.find(getAncestor(path, depth)))
            requireNotGone(path, depth);
    }
}

void PathEdit::requireNotGone(const MetadataPath& path, std::size_t depth) const {
    if (seen_.isGone(path, depth))
        refuse(getAncestor(path, depth), seen_.explainGone(path, depth));
}

void PathEdit::refuse(const MetadataPath& path, const std::u16string& problem) const {
    raise<MetadataWriteFailure>(table_.getFile().text(), u"the path \"" + path.string() + u"\" in it " + problem);
}

}  // namespace stores::sqlite
