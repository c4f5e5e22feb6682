#include "stores/sqlite/Damage.hpp"

#include <algorithm>
#include <utility>

#include "store_support/NodeBlob.hpp"
#include "store_support/TreeRules.hpp"

namespace stores::sqlite {

namespace {

constexpr const char* selectUnreachable =
    "WITH RECURSIVE reached (id, steps) AS (SELECT 0, 0 UNION ALL SELECT row.id, steps + 1 FROM reached"
    " CROSS JOIN path AS entry INDEXED BY path_order CROSS JOIN path AS row NOT INDEXED"
    " WHERE steps < ?1 AND entry.parent = reached.id AND row.id = entry.id AND row.parent = reached.id AND row.id <> 0)"
    " SELECT id FROM path WHERE id NOT IN (SELECT id FROM reached) AND id <> 0 ORDER BY id";
constexpr const char* selectRoot = "SELECT parent IS NULL AND type = '' AND location = '' FROM path WHERE id = 0";

/// Whether each row has a way to the root path that is not too long. Asks less than `selectUnreachable`, which also
/// says which have none: indices are not looked at, and parents must have come before their children, as they do
/// wherever a store has made them.
bool isAllReachable(sqlite3& connection) {
    const Statement rows = prepare(connection, "SELECT id, parent FROM path ORDER BY id");
    std::vector<std::pair<RowId, std::size_t>> steps;  // of the rows so far
    std::size_t last = 0;                              // the parent found last: mostly that of the next one too
    for (Query query(rows); query.next();) {
        const RowId id = query.integer(0);
        if (id == rootRow && steps.empty()) {
            steps.emplace_back(id, 0);
            continue;
        }
        const RowId parent = query.integer(1);
        if (steps.empty() || query.isNull(1))
            return false;
        if (steps[last].first != parent) {
            const auto found = std::lower_bound(steps.begin(), steps.end(), std::pair(parent, std::size_t{0}));
            if (found == steps.end() || found->first != parent)
                return false;
            last = static_cast<std::size_t>(found - steps.begin());
        }
        if (steps[last].second == maximumSteps)
            return false;
        steps.emplace_back(id, steps[last].second + 1);
    }
    return true;
}

/// @param problems is filled as far as the database can be read
void findDamage(PathTable& table, std::vector<std::u16string>& problems) {
    sqlite3& connection = table.getConnection();
    const Statement integrity = prepare(connection, "PRAGMA integrity_check");
    for (Query query(integrity); query.next();) {
        if (query.bytes(0) != "ok")
            problems.push_back(fromUtf8(query.bytes(0)));
    }
    const Statement root = prepare(connection, selectRoot);
    if (Query query(root); !query.next() || query.integer(0) == 0)
        problems.emplace_back(u"the row of the root path (row 0) is missing, or says that it is another path");
    if (!problems.empty() || !isAllReachable(connection)) {
        const Statement unreachable = prepare(connection, selectUnreachable);
        for (Query query(unreachable, std::int64_t{maximumSteps}); query.next();) {
            const RowId id = query.integer(0);
            problems.push_back(describe(table.getPath(id), id) + u" has no way to the root path, or one of more than " +
                               host::fromUtf8(std::to_string(maximumSteps)) + u" steps");
        }
    }
    const Statement rows = prepare(connection, "SELECT id, type, location, node FROM path ORDER BY id");
    for (Query query(rows); query.next();) {
        const RowId id = query.integer(0);
        if (!query.text(1) || !query.text(2))
            problems.push_back(describeBadStep(table.getPath(id), id));
        if (!query.isNull(3) && !store_support::isNode(query.bytes(3)))
            problems.push_back(describeBadNode(table.getPath(id), id));
    }
}

}  // namespace

std::vector<std::u16string> findDamage(PathTable& table) {
    std::vector<std::u16string> problems;
    try {
        findDamage(table, problems);
    } catch (const SqliteError& error) {
        problems.push_back(fromUtf8(error.what()));
    }
    return problems;
}

}  // namespace stores::sqlite
