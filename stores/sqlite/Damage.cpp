#include "stores/sqlite/Damage.hpp"

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
    const Statement unreachable = prepare(connection, selectUnreachable);
    for (Query query(unreachable, std::int64_t{maximumSteps}); query.next();) {
        const RowId id = query.integer(0);
        problems.push_back(describe(table.getPath(id), id) + u" has no way to the root path, or one of more than " +
                           host::fromUtf8(std::to_string(maximumSteps)) + u" steps");
    }
    const Statement rows = prepare(connection, "SELECT id, type, location, node FROM path ORDER BY id");
    for (Query query(rows); query.next();) {
        const RowId id = query.integer(0);
        if (!query.text(1) || !query.text(2))
            problems.push_back(describeBadStep(table.getPath(id), id));
        const NodeValue node = query.node(3);
        if (node && !decodeNode(*node))
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
