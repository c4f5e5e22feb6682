/// The tables on the server, with the statements that read and write one project in them. The schema is written down at
/// the top of ProjectTable.cpp.
///
/// The statements are handed out as calls, so that several go in one round trip. No function keeps state; all may be
/// called from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "stores/Names.hpp"
#include "stores/postgresql/Connection.hpp"
#include "stores/postgresql/PathId.hpp"

namespace stores::postgresql {

using Calls = std::vector<Call>;

/// What the row of a path says of it.
struct Row {
    PathId id;
    PathId parent;  ///< `rootId` for the root path too
    /// The last step; no value where it was not asked for, and where the columns hold no text, which is damage.
    std::optional<PathElement> element;
    std::int64_t position;
    bool hasNode;
    NodeValue node;        ///< no value where it was not asked for, too
    std::int64_t changed;  ///< the batch that has added the path or changed its node last

    /// Whether what the row says of its step fits its number. Where that holds for a row and those above it, it is at
    /// one place in the tree.
    bool isSound() const;
};

/// What somebody wants to know of a project.
struct Question {
    std::vector<PathId> rows;         ///< the rows of these paths
    std::vector<PathId> childrenOf;   ///< the rows of all children of these paths
    std::vector<PathId> positionsIn;  ///< the last position of a child of each of these paths
    std::vector<PathId> below;        ///< the rows of all that is below these paths
    /// All rows, without the step and the node of those paths.
    std::optional<std::vector<PathId>> allBut;

    /// Whether only the number of the last batch is asked for.
    bool isEmpty() const {
        return rows.empty() && childrenOf.empty() && positionsIn.empty() && below.empty() && !allBut;
    }
};

/// What there was at one moment.
struct Answer {
    std::int64_t batch = 0;                                    ///< the number of the last batch
    std::unordered_map<PathId, Row> rows;                      ///< of what exists, by path
    std::unordered_map<PathId, std::vector<Row>> childrenOf;   ///< by their parent, in their order
    std::unordered_map<PathId, std::int64_t> lastPositionsIn;  ///< 0 where there are no children
    std::vector<Row> below;                                    ///< in no particular order
    std::vector<Row> all;                                      ///< in no particular order
};

/// What a batch does to the rows of a project.
struct RowChanges {
    struct NewRow {
        PathId id;
        PathId parent;
        PathElement element;
        std::int64_t position;
        NodeValue node;
    };
    std::vector<NewRow> added;
    std::vector<std::pair<PathId, NodeValue>> nodes;
    std::vector<std::pair<PathId, std::int64_t>> positions;
    std::vector<PathId> removed;

    bool areNone() const { return added.empty() && nodes.empty() && positions.empty() && removed.empty(); }
};

/// Appends what prepares a session for a schema, in which nobody is waited for longer than `limit`.
void prepareSession(Calls& calls, const std::string& schema, std::chrono::milliseconds limit);

/// Whether the answer to the last one of those calls is that the server can tell of changes.
bool canTell(const Result& result);

/// Appends the question for the version of the schema.
void askForVersion(Calls& calls);

/// @throws ServerError if the answer to that is not the version that is known
void requireVersion(const Result& result);

/// Appends what makes the tables where there are none, as a transaction of its own.
void makeTables(Calls& calls);

/// How a question is asked.
enum class Asking {
    atOneMoment,  ///< as a transaction of its own, which only reads
    inTurn,       ///< begins a transaction, and waits in it until all that change the project have done so
};

/// Appends `question` about the project.
void ask(Calls& calls, const uuid& project, const Question& question, Asking asking);

/// The answer, of which the results begin at `results`. No value if there is no such project.
std::optional<Answer> takeAnswer(const Question& question, const Result* results, Asking asking);

/// Appends what carries out `changes` as the batch after the batch `last`, and ends the transaction. It fails if `last`
/// is not the last one. `token`, which nobody else has, tells the batch from all others.
/// @param isBegun whether a transaction has been begun by `Asking::inTurn`
/// @param isTold whether those who listen are told of it
void write(Calls& calls, const uuid& project, std::int64_t last, const uuid& token, const RowChanges& changes,
           bool isBegun, bool isTold);

/// Appends what makes the session be told of batches of the project that are made from now on.
void listen(Calls& calls, const uuid& project);

/// The text with which it is told.
std::string getNotice(const uuid& project);

/// Whether `error` says that the server cannot do that although it has the functions.
bool isUnsupported(const ServerError& error);

/// Whether `error` says that somebody else has made a batch after `last`.
bool isOvertaken(const ServerError& error);

/// How many batches back `findBatch` can look.
constexpr std::int64_t rememberedBatches = 4096;

/// Appends the question whether there is a batch with that token; the answer has its number in a row if there is.
void findBatch(Calls& calls, const uuid& project, const uuid& token);

/// Appends what makes a project, with the root path and what `changes` adds, as the batch 1.
void makeProject(Calls& calls, const uuid& project, const uuid& token, const RowChanges& changes);

/// Appends what removes a project with everything in it, unless there are batches after `last`; the answer to the first
/// of the calls has a row if it was there and is gone now.
void removeProject(Calls& calls, const uuid& project, std::int64_t last);

}  // namespace stores::postgresql
