#include "stores/sqlite/Damage.hpp"

#include "host/Text.hpp"
#include "stores/sqlite/NodeBlob.hpp"

namespace stores::sqlite {

namespace {

constexpr const char* selectUnreachable =
    "WITH RECURSIVE reached (id) AS (SELECT 0 UNION SELECT path.id FROM reached JOIN path ON path.parent = reached.id)"
    " SELECT id FROM path WHERE id NOT IN reached ORDER BY id";

std::u16string describe(const PathTable& table, RowId id) {
    return u"the path \"" + table.getPath(id).string() + u"\" (row " + host::fromUtf8(std::to_string(id)) + u")";
}

/// @param problems is filled as far as the database can be read
void findDamage(PathTable& table, std::vector<std::u16string>& problems) {
    sqlite3& connection = table.getConnection();
    const Statement integrity = prepare(connection, "PRAGMA integrity_check");
    for (Query query(integrity); query.next();) {
        if (query.bytes(0) != "ok")
            problems.push_back(host::fromUtf8(query.bytes(0)));
    }
    const Statement unreachable = prepare(connection, selectUnreachable);
    for (Query query(unreachable); query.next();)
        problems.push_back(describe(table, query.integer(0)) + u" has no way to the root path");
    const Statement rows = prepare(connection, "SELECT id, type, location, node FROM path ORDER BY id");
    for (Query query(rows); query.next();) {
        if (!query.text(1) || !query.text(2))
            problems.push_back(describe(table, query.integer(0)) + u" has a type or a location that is no text");
        const NodeValue node = query.node(3);
        if (node && !decodeNode(*node))
            problems.push_back(describe(table, query.integer(0)) + u" has a node that cannot be read");
    }
}

}  // namespace

std::vector<std::u16string> findDamage(PathTable& table) {
    std::vector<std::u16string> problems;
    try {
        findDamage(table, problems);
    } catch (const SqliteError& error) {
        problems.push_back(host::fromUtf8(error.what()));
    }
    return problems;
}

}  // namespace stores::sqlite
