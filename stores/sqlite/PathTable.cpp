// The schema. The database says in its header what it is: the application_id is 0x504D4442, the user_version, which is
// the version of the schema, 1. Another version is refused, whether older or newer.
//
//     path       a row for each path that exists, the root path among them
//         id         0 for the root path
//         parent     the row of the path without its last step; NULL for the root path
//         type       of the last step: TEXT, or a BLOB of UTF-16 units with the low byte first where UTF-8 does not
//         location   keep the text or where it holds zeros; the root path's are empty
//         position   siblings are in ascending order of it; gaps let a path in between without moving others
//         node       the node (store_support/NodeBlob.cpp); NULL if there is none
//         changed    the number of the batch that added the path or changed its node last
//     state      one row
//         batch      the number of the last batch
//
// Nobody's changes are overwritten unseen with the help of "changed": SeenChanges.hpp.

#include "stores/sqlite/PathTable.hpp"

#include <algorithm>
#include <array>
#include <iterator>

#include "store_support/ChildNumbers.hpp"
#include "store_support/Positions.hpp"
#include "store_support/TreeRules.hpp"

namespace stores::sqlite {

namespace {

constexpr std::int64_t applicationId = 0x504D4442;
constexpr std::int64_t schemaVersion = 1;

/// No store lives to see more.
constexpr std::int64_t lastBatch = std::int64_t{1} << 62;

/// What a row of sqlite_schema says of a part of the schema.
struct SchemaPart {
    const char* type;
    const char* name;
    const char* sql;  ///< null for what SQLite makes by itself
};

// They are compared with these texts when a database is opened.
constexpr SchemaPart schema[] = {
    {"table", "path", R"(CREATE TABLE path (
    id INTEGER PRIMARY KEY,
    parent INTEGER REFERENCES path (id),
    type ANY NOT NULL CHECK (typeof(type) IN ('text', 'blob')),
    location ANY NOT NULL CHECK (typeof(location) IN ('text', 'blob')),
    position INTEGER NOT NULL CHECK (position BETWEEN -2305843009213693952 AND 2305843009213693952),
    node BLOB,
    changed INTEGER NOT NULL,
    UNIQUE (parent, type, location)
) STRICT)"},
    {"index", "path_order", "CREATE INDEX path_order ON path (parent, position)"},
    {"index", "sqlite_autoindex_path_1", nullptr},
    {"table", "state", "CREATE TABLE state (batch INTEGER NOT NULL) STRICT"},
};

constexpr const char* firstRows = R"(
INSERT INTO path (id, parent, type, location, position, node, changed) VALUES (0, NULL, '', '', 0, NULL, 0);
INSERT INTO state (batch) VALUES (0);
)";

// The children of a path, and all that is below one. Both take from the index only what the rows themselves say too,
// and the root path for nobody's child. UNION, not UNION ALL: the index may name a row several times.
constexpr const char* selectChildren =
    "SELECT row.id, row.type, row.location, row.position, row.node IS NOT NULL, row.changed, entry.position"
    " FROM path AS entry INDEXED BY path_order CROSS JOIN path AS row NOT INDEXED"
    " WHERE entry.parent = ?1 AND row.id = entry.id AND row.parent = ?1 AND row.id <> 0"
    " ORDER BY entry.position, entry.id";
constexpr const char* selectChildrenAfter =
    "SELECT row.id, row.type, row.location, row.position, row.node, row.changed,"
    " EXISTS (SELECT 1 FROM path AS entryBelow INDEXED BY path_order WHERE entryBelow.parent = row.id)"
    " FROM path AS entry INDEXED BY path_order CROSS JOIN path AS row NOT INDEXED"
    " WHERE entry.parent = ?1 AND entry.position >= ?2 AND (entry.position > ?2 OR entry.id > ?3)"
    " AND row.id = entry.id AND row.parent = ?1 AND row.id <> 0"
    " ORDER BY entry.position, entry.id";
constexpr const char* selectChild =
    "SELECT row.id FROM path AS entry CROSS JOIN path AS row NOT INDEXED"
    " WHERE entry.parent = ?1 AND entry.type = ?2 AND entry.location = ?3 AND row.id = entry.id"
    " AND row.parent = ?1 AND row.type = ?2 AND row.location = ?3 AND row.id <> 0";
#define WITH_BELOW                                                                       \
    "WITH RECURSIVE below (id) AS (SELECT ?1 UNION SELECT row.id FROM below"             \
    " CROSS JOIN path AS entry INDEXED BY path_order CROSS JOIN path AS row NOT INDEXED" \
    " WHERE entry.parent = below.id AND row.id = entry.id AND row.parent = below.id AND row.id <> 0)"
constexpr const char* selectBelow =
    WITH_BELOW " SELECT id, node, changed, type, location, position FROM path WHERE id IN below";
constexpr const char* deleteBelow = WITH_BELOW " DELETE FROM path WHERE id IN below AND id <> 0";
#undef WITH_BELOW

std::int64_t getNumber(sqlite3& connection, const char* sql) {
    const Statement statement = prepare(connection, sql);
    Query query(statement);
    return query.next() ? query.integer(0) : 0;
}

std::u16string toText(std::int64_t number) {
    return fromUtf8(std::to_string(number));
}

}  // namespace

std::u16string describe(const MetadataPath& path, RowId id) {
    return u"the path \"" + path.string() + u"\" (row " + toText(id) + u")";
}

std::u16string describeBadStep(const MetadataPath& path, RowId id) {
    return describe(path, id) + u" has a type or a location that is no text";
}

std::u16string describeBadNode(const MetadataPath& path, RowId id) {
    return describe(path, id) + u" has a node that cannot be read";
}

void createTables(sqlite3& connection) {
    execute(connection, ("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
    execute(connection, ("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
    for (const SchemaPart& part : schema) {
        if (part.sql)
            execute(connection, part.sql);
    }
    execute(connection, firstRows);
}

std::int64_t getSchemaVersion(sqlite3& connection) {
    return getNumber(connection, "PRAGMA schema_version");
}

std::int64_t requireTables(sqlite3& connection, const Path& file) {
    const std::int64_t id = getNumber(connection, "PRAGMA application_id");
    if (id != applicationId) {
        if (getNumber(connection, "PRAGMA page_count") == 0)
            raise<MetadataReadFailure>(file.text(), u"it is empty");
        raise<MetadataReadFailure>(file.text(), u"it is a database of another application, with the application_id " +
                                                    toText(id) + u" instead of " + toText(applicationId));
    }
    const std::int64_t version = getNumber(connection, "PRAGMA user_version");
    if (version != schemaVersion) {
        raise<MetadataReadFailure>(file.text(), u"its schema has the version " + toText(version) + u"; only version " +
                                                    toText(schemaVersion) + u" is known");
    }
    const auto refuse = [&](const std::string& type, const std::string& name, const char16_t* problem) {
        raise<MetadataReadFailure>(file.text(),
                                   u"the " + fromUtf8(type) + u" \"" + fromUtf8(name) + u"\" in it " + problem);
    };
    std::array<bool, std::size(schema)> isThere{};
    const Statement statement = prepare(connection, "SELECT type, name, sql FROM sqlite_schema");
    for (Query query(statement); query.next();) {
        const std::string type(query.bytes(0));
        const std::string name(query.bytes(1));
        const auto part = std::find_if(std::begin(schema), std::end(schema), [&](const SchemaPart& candidate) {
            return type == candidate.type && name == candidate.name;
        });
        if (part == std::end(schema))
            refuse(type, name, u"is none that a store makes");
        if (query.isNull(2) ? part->sql != nullptr : !part->sql || query.bytes(2) != part->sql)
            refuse(type, name, u"is not as a store makes it");
        isThere[static_cast<std::size_t>(part - std::begin(schema))] = true;
    }
    for (std::size_t i = 0; i < isThere.size(); ++i) {
        if (!isThere[i])
            refuse(schema[i].type, schema[i].name, u"is missing");
    }
    return getSchemaVersion(connection);
}

PathTable::PathTable(sqlite3& connection, Path file)
    : connection_(connection),
      file_(std::move(file)),
      getBatch_(prepare(connection, "SELECT batch FROM state")),
      setBatch_(prepare(connection, "UPDATE state SET batch = ?")),
      findChild_(prepare(connection, selectChild)),
      getLastPosition_(prepare(connection, "SELECT max(position) FROM path WHERE parent = ?")),
      insert_(prepare(connection,
                      "INSERT INTO path (id, parent, type, location, position, node, changed)"
                      " VALUES ((SELECT max(id) + 1 FROM path), ?, ?, ?, ?, ?, ?)")),
      getRow_(prepare(connection, "SELECT node, changed, position FROM path WHERE id = ?")),
      setNode_(prepare(connection, "UPDATE path SET node = ?, changed = ? WHERE id = ?")),
      setPosition_(prepare(connection, "UPDATE path SET position = ? WHERE id = ?")),
      setElement_(prepare(connection, "UPDATE path SET type = ?, location = ?, changed = ? WHERE id = ?")),
      getChildren_(prepare(connection, selectChildren)),
      getChildrenAfter_(prepare(connection, selectChildrenAfter)),
      getBelow_(prepare(connection, selectBelow)),
      removeBelow_(prepare(connection, deleteBelow)),
      getStep_(prepare(connection, "SELECT parent, type, location FROM path WHERE id = ?")) {}

std::int64_t PathTable::getBatch() const {
    Query query(getBatch_);
    if (!query.next())
        raise<MetadataReadFailure>(file_.text(), u"the table \"state\" is empty");
    const std::int64_t batch = query.integer(0);
    if (batch < 0 || batch > lastBatch)
        raise<MetadataReadFailure>(file_.text(), u"the number of the last batch in it is " + toText(batch));
    return batch;
}

void PathTable::setBatch(std::int64_t batch) {
    Query(setBatch_, batch).next();
    requireOneRow();
}

std::optional<RowId> PathTable::find(const MetadataPath& path) {
    const auto& elements = path.getPath();
    std::size_t known = 0;
    while (known < walk_.size() && known < elements.size() && walk_[known].first == elements[known])
        ++known;
    walk_.erase(walk_.begin() + static_cast<std::ptrdiff_t>(known), walk_.end());
    while (walk_.size() < elements.size()) {
        const PathElement& element = elements[walk_.size()];
        const auto child = findChild(walk_.empty() ? rootRow : walk_.back().second, element);
        if (!child)
            return std::nullopt;
        walk_.emplace_back(element, *child);
    }
    return walk_.empty() ? rootRow : walk_.back().second;
}

RowId PathTable::findParent() const noexcept {
    return walk_.size() < 2 ? rootRow : walk_[walk_.size() - 2].second;
}

void PathTable::add(const MetadataPath& path, const NodeValue& node, std::int64_t batch) {
    find(path);
    const auto& elements = path.getPath();
    while (walk_.size() < elements.size()) {
        const RowId parent = walk_.empty() ? rootRow : walk_.back().second;
        const bool isLeaf = walk_.size() + 1 == elements.size();
        const PathElement& element = elements[walk_.size()];
        const RowId id =
            insert(parent, element, getLastPosition(parent) + positionGap, isLeaf ? node : std::nullopt, batch);
        walk_.emplace_back(element, id);
    }
}

// In a damaged table SQLite may take another row's number for a new one, and write where it does not find it again.
RowId PathTable::insert(RowId parent, const PathElement& element, std::int64_t position, const NodeValue& node,
                        std::int64_t batch) {
    Query(insert_, parent, encodeText(element.getType()), encodeText(element.getLocation()), position, node, batch)
        .next();
    const RowId id = sqlite3_last_insert_rowid(&connection_);
    if (findChild(parent, element) != id)
        raiseUnsound();
    return id;
}

std::int64_t PathTable::getLastPosition(RowId parent) const {
    Query query(getLastPosition_, parent);
    return query.next() ? std::clamp(query.integer(0), -positionBound, positionBound) : 0;
}

Row PathTable::getRow(RowId id) const {
    Query query(getRow_, id);
    if (!query.next())
        raise<MetadataReadFailure>(file_.text(), u"the row " + toText(id) + u" of a path is missing");
    return {query.node(0), query.integer(1), query.integer(2)};
}

void PathTable::setNode(RowId id, const NodeValue& node, std::int64_t batch) {
    Query(setNode_, node, batch, id).next();
    requireOneRow();
}

void PathTable::setPosition(RowId id, std::int64_t position) {
    Query(setPosition_, position, id).next();
    requireOneRow();
}

void PathTable::setElement(RowId id, const PathElement& element, std::int64_t batch) {
    Query(setElement_, encodeText(element.getType()), encodeText(element.getLocation()), batch, id).next();
    requireOneRow();
    forgetRows();
}

bool PathTable::hasChildren(RowId parent) const {
    return Query(getChildren_, parent).next();
}

std::vector<ChildRow> PathTable::getChildren(RowId parent, std::vector<DamagedRow>* leftOut) const {
    std::vector<ChildRow> children;
    std::optional<std::pair<std::int64_t, RowId>> last;
    for (Query query(getChildren_, parent); query.next();) {
        const RowId id = query.integer(0);
        const std::pair<std::int64_t, RowId> place(query.integer(6), id);
        if (last && place <= *last)
            raiseTwice(id);
        last = place;
        const auto type = query.text(1);
        const auto location = query.text(2);
        if (type && location) {
            const std::int64_t position = std::clamp(query.integer(3), -positionBound, positionBound);
            children.push_back({id, {*type, *location}, position, query.integer(4) != 0, query.integer(5)});
        } else if (leftOut) {
            leftOut->push_back({id, query.integer(5)});
        }
    }
    std::vector<std::pair<std::size_t, const ChildRow*>> sorted;  // by hashes, which costs less than by texts
    sorted.reserve(children.size());
    for (const ChildRow& child : children)
        sorted.emplace_back(store_support::ChildStepHash()({0, &child.element}), &child);
    std::sort(sorted.begin(), sorted.end());
    for (auto end = sorted.begin(); end != sorted.end();) {
        // Different steps may have one hash.
        const auto begin = end;
        while (end != sorted.end() && end->first == begin->first) {
            const auto isTwin = [&](const auto& other) { return other.second->element == end->second->element; };
            if (std::any_of(begin, end, isTwin))
                raiseTwice(end->second->id);
            ++end;
        }
    }
    return children;
}

void PathTable::visitChildrenAfter(RowId parent, std::int64_t position, RowId id,
                                   const std::function<bool(FullRow row)>& visit) const {
    for (Query query(getChildrenAfter_, parent, position, id); query.next();) {
        const auto type = query.text(1);
        const auto location = query.text(2);
        if (!type || !location)
            return;
        FullRow row{query.integer(0), {*type, *location}, query.integer(3),
                    query.node(4),    query.integer(5),   query.integer(6) != 0};
        if (!visit(std::move(row)))
            return;
    }
}

void PathTable::requireOneRow() const {
    if (sqlite3_changes(&connection_) != 1)
        raiseUnsound();
}

void PathTable::raiseUnsound() const {
    raise<MetadataReadFailure>(file_.text(), u"it is damaged: what was written to it is not found again");
}

void PathTable::raiseTwice(RowId id) const {
    raise<MetadataReadFailure>(file_.text(), describe(getPath(id), id) + u" is in it twice");
}

void PathTable::visitBelow(RowId id, const std::function<void(RowId id, const Row& row)>& visit) const {
    for (Query query(getBelow_, id); query.next();) {
        const RowId below = query.integer(0);
        if (!query.text(3) || !query.text(4))
            raise<MetadataReadFailure>(file_.text(), describeBadStep(getPath(below), below));
        visit(below, {query.node(1), query.integer(2), query.integer(5)});
    }
}

void PathTable::removeBelow(RowId id) {
    Query(removeBelow_, id).next();
    forgetRows();
    if (hasChildren(id) || (id != rootRow && Query(getRow_, id).next()))
        raiseUnsound();
}

MetadataPath PathTable::getPath(RowId id) const {
    // A ring of rows, which only damage makes, ends when it is as long as no path is.
    std::vector<PathElement> elements;
    while (id != rootRow && elements.size() < maximumSteps) {
        Query query(getStep_, id);
        if (!query.next())
            break;
        elements.emplace_back(query.text(1).value_or(u"?"), query.text(2).value_or(u"?"));
        id = query.integer(0);
    }
    std::reverse(elements.begin(), elements.end());
    return MetadataPath(std::move(elements));
}

std::optional<RowId> PathTable::findChild(RowId parent, const PathElement& element) const {
    Query query(findChild_, parent, encodeText(element.getType()), encodeText(element.getLocation()));
    return query.next() ? std::optional(query.integer(0)) : std::nullopt;
}

}  // namespace stores::sqlite
