#include "stores/sqlite/Damage.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/Interruption.hpp"
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

/// What stands before the first finding about the database.
constexpr std::string_view heading = "*** in database main ***\n";

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

class DamageFinder {
public:
    DamageFinder(PathTable& table, const Path& file) : table_(table), file_(file) {}

    /// Finds all as far as the database can be read.
    std::vector<MetadataDamage> find() {
        try {
            findUnsound();
            findBadRows();
        } catch (const SqliteError& error) {
            if (error.isGivenUp())
                host::Interruption::throwIfRequested();
            add(fromUtf8(error.what()));
        }
        return std::move(damage_);
    }

private:
    void add(std::u16string problem, std::optional<MetadataPath> path = std::nullopt) {
        damage_.push_back({file_, std::move(problem), false, false, false, std::move(path)});
    }

    void findUnsound() {
        sqlite3& connection = table_.getConnection();
        const Statement integrity = prepare(connection, "PRAGMA integrity_check");
        for (Query query(integrity); query.next();) {
            std::string_view line = query.bytes(0);
            if (line.substr(0, heading.size()) == heading)
                line.remove_prefix(heading.size());
            if (line != "ok")
                add(fromUtf8(line));
        }
        const Statement root = prepare(connection, selectRoot);
        if (Query query(root); !query.next() || query.integer(0) == 0)
            add(u"the row of the root path (row 0) is missing, or says that it is another path");
        if (damage_.empty() && isAllReachable(connection))
            return;
        const Statement unreachable = prepare(connection, selectUnreachable);
        for (Query query(unreachable, std::int64_t{maximumSteps}); query.next();) {
            const RowId id = query.integer(0);
            add(describe(table_.getPath(id), id) + u" has no way to the root path, or one of more than " +
                host::fromUtf8(std::to_string(maximumSteps)) + u" steps");
        }
    }

    void findBadRows() {
        const Statement rows = prepare(table_.getConnection(), "SELECT id, type, location, node FROM path ORDER BY id");
        for (Query query(rows); query.next();) {
            const RowId id = query.integer(0);
            if (!query.text(1) || !query.text(2))
                add(describeBadStep(table_.getPath(id), id), findPath(id));
            if (!query.isNull(3) && !store_support::isNode(query.bytes(3)))
                add(describeBadNode(table_.getPath(id), id), findPath(id));
        }
    }

    /// That of the row, or the nearest one above it that can be read; no value if it has no way to the root path.
    std::optional<MetadataPath> findPath(RowId id) {
        const Statement select =
            prepare(table_.getConnection(), "SELECT parent, type, location FROM path WHERE id = ?1");
        std::vector<PathElement> steps;
        for (std::size_t count = 0; id != rootRow; ++count) {
            Query query(select, id);
            if (count == maximumSteps || !query.next() || query.isNull(0))
                return std::nullopt;
            const auto type = query.text(1);
            const auto location = query.text(2);
            if (type && location)
                steps.emplace_back(*type, *location);
            else
                steps.clear();
            id = query.integer(0);
        }
        return MetadataPath({steps.rbegin(), steps.rend()});
    }

    PathTable& table_;
    const Path& file_;
    std::vector<MetadataDamage> damage_;
};

}  // namespace

std::vector<MetadataDamage> findDamage(PathTable& table, const Path& file) {
    return DamageFinder(table, file).find();
}

}  // namespace stores::sqlite
