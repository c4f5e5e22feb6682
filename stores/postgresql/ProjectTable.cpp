// The schema. It may hold any number of projects.
//
//     format     one row
//         version    of the schema: 1. Another version is refused, whether older or newer.
//     project    a row for each project
//         id         a random UUID, which stands in the core file
//         batch      the number of the last batch
//         made       when it was made; for people
//     path       a row for each path that exists, the root paths among them
//         project
//         id         a number that follows from the path's steps (PathId.hpp), 0 for the root path
//         parent     the number of the path without its last step; NULL for the root path
//         type       of the last step: UTF-8 where that keeps the text (encodeText); the root path's are empty
//         location
//         position   siblings are in ascending order of it; gaps let a path in between without moving others
//         node       the node (store_support/NodeBlob.cpp); NULL if there is none
//         changed    the number of the batch that added the path or changed its node last
//     batch      a row for each of the last 4096 batches of each project
//         project
//         number
//         token      a random UUID by which its maker knows it again
//
// A batch begins with writing the next number into the row of its project. So the batches of a project happen one after
// the other, each seeing all that the one before it has done: they are serializable, whatever the level of isolation,
// and nobody is sent away because of somebody else's project. What is read comes from one moment.
//
// A batch tells those who wait for changes by NOTIFY on the channel "project_metadata". All transactions that do so
// take turns, on the whole server. So it does that only where somebody listens: a listener holds an advisory lock of
// the project, shared with others, and a batch tries to take it alone. The number of the lock and the text of the
// notice follow from the project's, but do not tell it, since anybody in the database can see them.

#include "stores/postgresql/ProjectTable.hpp"

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>

#include "store_support/Positions.hpp"

namespace stores::postgresql {

namespace {

constexpr std::int64_t schemaVersion = 1;

/// How many rows one statement takes, so that no message grows beyond what a server accepts.
constexpr std::size_t rowsAtOnce = 10000;

// "pg_temp" comes first wherever it is not named: nothing there is to stand for a table of the schema.
constexpr Statement setSchema{"set_schema",
                              "SELECT set_config('search_path', quote_ident($1) || ', pg_temp', false),"
                              " set_config('lock_timeout', $2, false),"
                              " set_config('idle_in_transaction_session_timeout', '30s', false)"};
// A change that has returned is on disk.
constexpr Statement setCommit{"set_commit",
                              "SELECT set_config('synchronous_commit', 'on', false)"
                              " WHERE current_setting('synchronous_commit') = 'off'"};
// Compiling a statement takes some 300 ms, which pays off in none of these.
constexpr Statement setCompiling{"set_compiling",
                                 "SELECT set_config('jit', 'off', false) WHERE current_setting('jit', true) = 'on'"};
// Each of them once: one has the same name as another that takes other arguments.
constexpr Statement selectNotify{
    "select_notify",
    "SELECT count(DISTINCT proname) = 3 FROM pg_proc WHERE has_function_privilege(oid, 'EXECUTE') AND"
    " proname IN ('pg_notify', 'pg_try_advisory_xact_lock', 'pg_advisory_lock_shared')"};
constexpr Statement selectVersion{"select_version", "SELECT version FROM format"};

constexpr Statement createTables[] = {
    {"create_format", "CREATE TABLE IF NOT EXISTS format (version bigint PRIMARY KEY)"},
    {"create_project",
     "CREATE TABLE IF NOT EXISTS project (id uuid PRIMARY KEY, batch bigint NOT NULL,"
     " made timestamptz NOT NULL DEFAULT now())"},
    {"create_batch",
     "CREATE TABLE IF NOT EXISTS batch (project uuid NOT NULL REFERENCES project (id) ON DELETE CASCADE,"
     " number bigint NOT NULL, token uuid NOT NULL, PRIMARY KEY (project, number))"},
    {"create_path",
     "CREATE TABLE IF NOT EXISTS path (project uuid NOT NULL, id uuid NOT NULL, parent uuid, type bytea NOT NULL,"
     " location bytea NOT NULL, position bigint NOT NULL, node bytea, changed bigint NOT NULL,"
     " PRIMARY KEY (project, id))"},
    {"create_path_order", "CREATE INDEX IF NOT EXISTS path_order ON path (project, parent, position)"},
};
constexpr Statement insertVersion{"insert_version", "INSERT INTO format (version) VALUES ($1) ON CONFLICT DO NOTHING"};

constexpr Statement begin{"begin", "BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE"};
constexpr Statement beginReading{"begin_reading", "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY"};
constexpr Statement commit{"commit", "COMMIT"};

constexpr Statement selectBatch{"select_batch", "SELECT batch FROM project WHERE id = $1"};
constexpr Statement lockBatch{"lock_batch", "SELECT batch FROM project WHERE id = $1 FOR UPDATE"};
// NULL is refused.
constexpr Statement takeTurn{"take_turn",
                             "UPDATE project SET batch = CASE WHEN batch = $2 THEN batch + 1 END WHERE id = $1"};
constexpr Statement insertBatch{"insert_batch", "INSERT INTO batch (project, number, token) VALUES ($1, $2, $3)"};
constexpr Statement selectToken{"select_token", "SELECT number FROM batch WHERE project = $1 AND token = $2"};
constexpr Statement deleteBatches{"delete_batches", "DELETE FROM batch WHERE project = $1 AND number <= $2"};

constexpr Statement notify{"notify",
                           "SELECT pg_notify('project_metadata', $2) WHERE NOT pg_try_advisory_xact_lock($1)"};
constexpr Statement listenToChanges{"listen", "LISTEN project_metadata"};
constexpr Statement holdListenersLock{"hold_listeners_lock", "SELECT pg_advisory_lock_shared($1)"};

// A server plans by statistics, and these may say nothing of a project that has come after them: it would take it for
// one of next to no rows, and go through all of them in search of one. So it does not get to see the project while it
// plans (THIS_PROJECT), and takes it for as large as projects are on average. And what is read is looked for row by row
// (LATERAL, which OFFSET 0 keeps as it is), which is best done by the index that knows most of the conditions, even as
// far as a server knows of an empty table, which its plan for this session may outlive by a million rows.
#define THIS_PROJECT "path.project = (SELECT $1::uuid)"
#define PATHS_OF(list, condition) \
    " FROM " list " CROSS JOIN LATERAL (SELECT * FROM path WHERE " THIS_PROJECT " AND " condition " OFFSET 0) AS path"
#define LISTED "unnest($2::uuid[]) AS listed (id)"

#define COLUMNS                                                                                        \
    "path.id, path.parent, path.type, path.location, path.position, path.node IS NOT NULL, path.node," \
    " path.changed"
constexpr Statement selectRows{"select_rows", "SELECT " COLUMNS PATHS_OF(LISTED, "path.id = listed.id")};
constexpr Statement selectChildren{
    "select_children",
    "SELECT " COLUMNS PATHS_OF(LISTED, "path.parent = listed.id") " ORDER BY path.parent, path.position, path.id"};
constexpr Statement selectPositions{"select_positions",
                                    "SELECT listed.id, (SELECT max(path.position) FROM path"
                                    " WHERE " THIS_PROJECT " AND path.parent = listed.id) FROM " LISTED};
// UNION, not UNION ALL: rows that somebody has made each other's children do not go round for ever.
constexpr Statement selectBelow{
    "select_below",
    "WITH RECURSIVE below (id) AS ("
    "SELECT path.id" PATHS_OF(LISTED, "path.parent = listed.id") " UNION SELECT path.id" PATHS_OF(
        "below", "path.parent = below.id") ") SELECT " COLUMNS PATHS_OF("below", "path.id = below.id")};
constexpr Statement selectAllBut{"select_all_but",
                                 "SELECT path.id, path.parent, CASE WHEN listed.id IS NULL THEN path.type END,"
                                 " CASE WHEN listed.id IS NULL THEN path.location END, path.position,"
                                 " path.node IS NOT NULL, CASE WHEN listed.id IS NULL THEN path.node END, path.changed"
                                 " FROM path LEFT JOIN " LISTED
                                 " ON listed.id = path.id"
                                 " WHERE " THIS_PROJECT};
#undef COLUMNS
#undef LISTED
#undef PATHS_OF

constexpr Statement insertRows{
    "insert_rows",
    "INSERT INTO path (project, id, parent, type, location, position, node, changed)"
    " SELECT $1::uuid, item.id, item.parent, item.type, item.location, item.position, item.node, $2::bigint"
    " FROM unnest($3::uuid[], $4::uuid[], $5::bytea[], $6::bytea[], $7::bigint[], $8::bytea[])"
    " AS item (id, parent, type, location, position, node)"};
constexpr Statement updateNodes{"update_nodes",
                                "UPDATE path SET node = item.node, changed = $2"
                                " FROM unnest($3::uuid[], $4::bytea[]) AS item (id, node)"
                                " WHERE " THIS_PROJECT " AND path.id = item.id"};
constexpr Statement updatePositions{"update_positions",
                                    "UPDATE path SET position = item.position"
                                    " FROM unnest($2::uuid[], $3::bigint[]) AS item (id, position)"
                                    " WHERE " THIS_PROJECT " AND path.id = item.id"};
constexpr Statement deleteRows{"delete_rows", "DELETE FROM path WHERE " THIS_PROJECT " AND id = ANY ($2)"};
#undef THIS_PROJECT

constexpr Statement insertProject{"insert_project", "INSERT INTO project (id, batch) VALUES ($1, 1)"};
constexpr Statement insertRoot{"insert_root",
                               "INSERT INTO path (project, id, parent, type, location, position, node, changed)"
                               " VALUES ($1, $2, NULL, '', '', 0, NULL, 1)"};
constexpr Statement deleteProject{"delete_project", "DELETE FROM project WHERE id = $1 AND batch = $2 RETURNING id"};
constexpr Statement deletePaths{
    "delete_paths", "DELETE FROM path WHERE project = $1 AND NOT EXISTS (SELECT FROM project WHERE project.id = $1)"};

/// Calls `take` for the parts of `items` that one statement takes.
template <class Item, class Take>
void inParts(const std::vector<Item>& items, const Take& take) {
    for (std::size_t first = 0; first < items.size(); first += rowsAtOnce) {
        const auto part = items.begin() + static_cast<std::ptrdiff_t>(first);
        const auto count = static_cast<std::ptrdiff_t>(std::min(rowsAtOnce, items.size() - first));
        take(part, part + count);
    }
}

void insert(Calls& calls, const uuid& project, std::int64_t batch, const std::vector<RowChanges::NewRow>& added) {
    inParts(added, [&](auto row, auto end) {
        std::vector<PathId> ids, parents;
        std::vector<std::string> types, locations;
        std::vector<std::int64_t> positions;
        std::vector<NodeValue> nodes;
        for (; row != end; ++row) {
            ids.push_back(row->id);
            parents.push_back(row->parent);
            types.push_back(encodeText(row->element.getType()));
            locations.push_back(encodeText(row->element.getLocation()));
            positions.push_back(row->position);
            nodes.push_back(row->node);
        }
        Call& call = calls.emplace_back(Call{insertRows});
        call.arguments.add(project).add(batch).add(ids).add(parents).add(types).add(locations).add(positions).add(
            nodes);
    });
}

/// Calls `statement` for `items`, each the number of a path and a value.
template <class Value>
void update(Calls& calls, const Statement& statement, const Arguments& first,
            const std::vector<std::pair<PathId, Value>>& items) {
    inParts(items, [&](auto item, auto end) {
        std::vector<PathId> ids;
        std::vector<Value> values;
        for (; item != end; ++item) {
            ids.push_back(item->first);
            values.push_back(item->second);
        }
        Arguments arguments = first;
        arguments.add(ids).add(values);
        calls.push_back({statement, std::move(arguments)});
    });
}

uuid getListenersName(const uuid& project) {
    return boost::uuids::name_generator_sha1(project)("changes");
}

std::int64_t getListenersLock(const uuid& project) {
    std::uint64_t number = 0;
    const uuid name = getListenersName(project);
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = number << 8U | name.data[i];
    return static_cast<std::int64_t>(number);
}

Row readRow(const Result& result, int row) {
    Row read{};
    read.id = result.id(row, 0);
    read.parent = result.isNull(row, 1) ? rootId : result.id(row, 1);
    if (!result.isNull(row, 2) && !result.isNull(row, 3)) {
        const auto type = decodeText(result.bytes(row, 2));
        const auto location = decodeText(result.bytes(row, 3));
        if (type && location)
            read.element.emplace(*type, *location);
    }
    read.position = std::clamp(result.integer(row, 4), -positionBound, positionBound);
    read.hasNode = result.boolean(row, 5);
    read.node = result.node(row, 6);
    read.changed = result.integer(row, 7);
    return read;
}

}  // namespace

bool Row::isSound() const {
    if (!element)
        return false;
    if (id == rootId)
        return element->getType().empty() && element->getLocation().empty();
    return id == getChildId(parent, *element);
}

void prepareSession(Calls& calls, const std::string& schema, std::chrono::milliseconds limit) {
    calls.push_back({setSchema, Arguments().add(schema).add(std::to_string(limit.count()))});
    calls.push_back({setCommit});
    calls.push_back({setCompiling});
    calls.push_back({selectNotify});
}

bool canTell(const Result& result) {
    return result.boolean(0, 0);
}

void askForVersion(Calls& calls) {
    calls.push_back({selectVersion});
}

void requireVersion(const Result& result) {
    if (result.size() != 1 || result.integer(0, 0) != schemaVersion) {
        throw ServerError("its tables have the version " +
                              (result.size() == 0 ? "(none)" : std::to_string(result.integer(0, 0))) +
                              "; only version " + std::to_string(schemaVersion) + " is known",
                          "", false);
    }
}

void makeTables(Calls& calls) {
    calls.push_back({begin});
    for (const Statement& statement : createTables)
        calls.push_back({statement});
    calls.push_back({insertVersion, Arguments().add(schemaVersion)});
    calls.push_back({commit});
}

void ask(Calls& calls, const uuid& project, const Question& question, Asking asking) {
    const auto about = [&](const std::vector<PathId>& ids) { return Arguments().add(project).add(ids); };
    const bool isInTurn = asking == Asking::inTurn;
    if (!isInTurn && question.isEmpty()) {
        calls.push_back({selectBatch, Arguments().add(project)});
        return;
    }
    calls.push_back({isInTurn ? begin : beginReading});
    calls.push_back({isInTurn ? lockBatch : selectBatch, Arguments().add(project)});
    if (!question.rows.empty())
        calls.push_back({selectRows, about(question.rows)});
    if (!question.childrenOf.empty())
        calls.push_back({selectChildren, about(question.childrenOf)});
    if (!question.positionsIn.empty())
        calls.push_back({selectPositions, about(question.positionsIn)});
    if (!question.below.empty())
        calls.push_back({selectBelow, about(question.below)});
    if (question.allBut)
        calls.push_back({selectAllBut, about(*question.allBut)});
    if (!isInTurn)
        calls.push_back({commit});
}

std::optional<Answer> takeAnswer(const Question& question, const Result* results, Asking asking) {
    if (asking == Asking::inTurn || !question.isEmpty())
        ++results;  // of the beginning
    Answer answer;
    if (results->size() == 0)
        return std::nullopt;
    answer.batch = results->integer(0, 0);
    const auto takeRows = [&](std::vector<Row>& rows) {
        ++results;
        rows.reserve(static_cast<std::size_t>(results->size()));
        for (int row = 0; row < results->size(); ++row)
            rows.push_back(readRow(*results, row));
    };
    if (!question.rows.empty()) {
        std::vector<Row> rows;
        takeRows(rows);
        for (Row& row : rows)
            answer.rows.emplace(row.id, std::move(row));
    }
    if (!question.childrenOf.empty()) {
        for (const PathId& parent : question.childrenOf)
            answer.childrenOf[parent];
        std::vector<Row> rows;
        takeRows(rows);
        for (Row& row : rows)
            answer.childrenOf[row.parent].push_back(std::move(row));
    }
    if (!question.positionsIn.empty()) {
        ++results;
        for (int row = 0; row < results->size(); ++row) {
            const std::int64_t last = results->isNull(row, 1) ? 0 : results->integer(row, 1);
            answer.lastPositionsIn[results->id(row, 0)] = std::clamp(last, -positionBound, positionBound);
        }
    }
    if (!question.below.empty())
        takeRows(answer.below);
    if (question.allBut)
        takeRows(answer.all);
    return answer;
}

void write(Calls& calls, const uuid& project, std::int64_t last, const uuid& token, const RowChanges& changes,
           bool isBegun, bool isTold) {
    const std::int64_t batch = last + 1;
    if (!isBegun)
        calls.push_back({begin});
    calls.push_back({takeTurn, Arguments().add(project).add(last)});
    calls.push_back({insertBatch, Arguments().add(project).add(batch).add(token)});
    inParts(changes.removed, [&](auto first, auto end) {
        calls.push_back({deleteRows, Arguments().add(project).add(std::vector<PathId>(first, end))});
    });
    update(calls, updatePositions, Arguments().add(project), changes.positions);
    update(calls, updateNodes, Arguments().add(project).add(batch), changes.nodes);
    insert(calls, project, batch, changes.added);
    calls.push_back({deleteBatches, Arguments().add(project).add(batch - rememberedBatches)});
    if (isTold)
        calls.push_back({notify, Arguments().add(getListenersLock(project)).add(getNotice(project))});
    calls.push_back({commit});
}

void listen(Calls& calls, const uuid& project) {
    calls.push_back({listenToChanges});
    calls.push_back({holdListenersLock, Arguments().add(getListenersLock(project))});
}

std::string getNotice(const uuid& project) {
    return to_string(getListenersName(project));
}

bool isUnsupported(const ServerError& error) {
    constexpr std::string_view featureNotSupported = "0A000";
    return error.state() == featureNotSupported;
}

bool isOvertaken(const ServerError& error) {
    constexpr std::string_view notNullViolation = "23502";
    return error.state() == notNullViolation;
}

void findBatch(Calls& calls, const uuid& project, const uuid& token) {
    calls.push_back({selectToken, Arguments().add(project).add(token)});
}

void makeProject(Calls& calls, const uuid& project, const uuid& token, const RowChanges& changes) {
    constexpr std::int64_t batch = 1;
    calls.push_back({begin});
    calls.push_back({insertProject, Arguments().add(project)});
    calls.push_back({insertBatch, Arguments().add(project).add(batch).add(token)});
    calls.push_back({insertRoot, Arguments().add(project).add(rootId)});
    update(calls, updateNodes, Arguments().add(project).add(batch), changes.nodes);
    insert(calls, project, batch, changes.added);
    calls.push_back({commit});
}

void removeProject(Calls& calls, const uuid& project, std::int64_t last) {
    calls.push_back({deleteProject, Arguments().add(project).add(last)});
    calls.push_back({deletePaths, Arguments().add(project)});
}

}  // namespace stores::postgresql
