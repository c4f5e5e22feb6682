#include "stores/postgresql/Damage.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "store_support/NodeBlob.hpp"
#include "store_support/TreeRules.hpp"

namespace stores::postgresql {

namespace {

std::u16string describe(const Row& row) {
    const PathElement step = row.element.value_or(PathElement(u"?", u"?"));
    return u"the row " + fromUtf8(to_string(row.id)) + u", a path that ends with \"" +
           MetadataPath(std::vector<PathElement>{step}).string() + u"\",";
}

/// The rows that can be reached from the root path with as many steps as a path may have.
std::unordered_set<PathId> findReached(const std::vector<Row>& rows) {
    std::unordered_map<PathId, std::vector<PathId>> children;
    for (const Row& row : rows) {
        if (row.id != rootId)
            children[row.parent].push_back(row.id);
    }
    std::unordered_set<PathId> reached;
    std::vector<PathId> level{rootId};
    for (std::size_t steps = 0; steps <= maximumSteps && !level.empty(); ++steps) {
        std::vector<PathId> next;
        for (const PathId& id : level) {
            if (reached.insert(id).second)
                next.insert(next.end(), children[id].begin(), children[id].end());
        }
        level = std::move(next);
    }
    return reached;
}

/// @param id of a row that can be reached from the root path. @return no value if not all rows on the way say where
///        they are
std::optional<MetadataPath> findPath(const std::unordered_map<PathId, const Row*>& rows, PathId id) {
    std::vector<PathElement> steps;
    while (id != rootId) {
        const auto row = rows.find(id);
        if (row == rows.end() || !row->second->isSound())
            return std::nullopt;
        steps.push_back(*row->second->element);
        id = row->second->parent;
    }
    return MetadataPath({steps.rbegin(), steps.rend()});
}

}  // namespace

std::u16string describeMisfit(const Row& row) {
    return describe(row) + u" says of its step or its parent what does not fit its number";
}

std::u16string describeBadNode(const Row& row) {
    return describe(row) + u" has a node that cannot be read";
}

std::vector<MetadataDamage> findDamage(const std::vector<Row>& rows) {
    const std::unordered_set<PathId> reached = findReached(rows);
    std::unordered_map<PathId, const Row*> rowsById;
    for (const Row& row : rows)
        rowsById.emplace(row.id, &row);
    std::vector<MetadataDamage> damage;
    const auto add = [&](std::u16string problem, std::optional<MetadataPath> path = std::nullopt) {
        damage.push_back({{}, std::move(problem), false, false, false, std::move(path)});
    };
    for (const Row& row : rows) {
        if (!row.isSound())
            add(describeMisfit(row));
        else if (reached.count(row.id) == 0)
            add(describe(row) + u" has no way to the root path");
        if (row.node && !store_support::isNode(*row.node))
            add(describeBadNode(row), reached.count(row.id) == 0 ? std::nullopt : findPath(rowsById, row.id));
    }
    if (rowsById.count(rootId) == 0)
        add(u"the row of the root path is missing");
    return damage;
}

}  // namespace stores::postgresql
