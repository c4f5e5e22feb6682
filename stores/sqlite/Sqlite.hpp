/// The C interface of SQLite with owners for its objects, values of our own types, and exceptions.
///
/// One thread at a time may use a connection and its statements.
#pragma once

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "store_support/NodeBlob.hpp"
#include "stores/Names.hpp"

namespace stores::sqlite {

/// What SQLite refused, or gave up because a budget was spent or the user wishes so. `what()` is its message in UTF-8,
/// with the operating system's where that was the reason.
class SqliteError : public std::runtime_error {
public:
    /// @param code what the last call for `connection`, which may be null, returned
    SqliteError(sqlite3* connection, int code);

    /// Whether a lock was held by somebody else for too long.
    bool isLock() const noexcept { return primary_ == SQLITE_BUSY || primary_ == SQLITE_LOCKED; }

    /// Whether it may be the fault of the connection: it takes locks of a log for held that it could not give back, and
    /// all for read-only where it could not open a log once.
    bool isStuck() const noexcept { return primary_ == SQLITE_PROTOCOL || primary_ == SQLITE_READONLY; }

    /// Whether a file is no database of SQLite.
    bool isNoDatabase() const noexcept { return primary_ == SQLITE_NOTADB; }

    /// Whether it was given up: the user wishes so, or the budget is spent.
    bool isGivenUp() const noexcept { return primary_ == SQLITE_INTERRUPT; }

    /// Whether a file could not be opened or made.
    bool isCannotOpen() const noexcept { return primary_ == SQLITE_CANTOPEN || primary_ == SQLITE_READONLY; }

private:
    int primary_;
};

struct ConnectionCloser {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
};

/// All statements of a connection must be gone before it goes.
using Connection = std::unique_ptr<sqlite3, ConnectionCloser>;

/// @param name the file in the form of the operating system, or a URI if `flags` say so
/// @param flags SQLITE_OPEN_...
/// @throws SqliteError
Connection openConnection(const std::string& name, int flags);

/// Whether `connection` holds a lock that it could not give back, until it is closed: others wait for that in vain.
bool isStuck(sqlite3& connection);

/// Turns off for `connection` what a database that comes from anywhere could have done to its reader: nothing in it is
/// run, no other file is opened by it, and what it makes SQLite do ends some time.
/// @param budget how many steps of SQLite's machine are left for what is run; must outlive `connection`
/// @throws SqliteError
void distrust(sqlite3& connection, std::int64_t& budget);

/// Runs `sql` and drops what it returns.
/// @throws SqliteError
void execute(sqlite3& connection, const char* sql);

/// A mark that changes with everything that anybody writes to a database, read without a lock and without waiting.
using ChangeMark = std::array<char, 48>;

/// Whether the changes of the database go to the write-ahead log, as its file says.
bool hasLog(sqlite3& connection);

/// The mark of the database.
/// @param isLogOn as `hasLog` has answered in a transaction
/// @return no value if it cannot be had
std::optional<ChangeMark> readChangeMark(sqlite3& connection, bool isLogOn);

struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

/// A statement that is going to be run many times.
/// @throws SqliteError
Statement prepare(sqlite3& connection, const char* sql);

/// A text as a column holds it: as TEXT in UTF-8 where that keeps it, otherwise as a BLOB of its UTF-16 units, the low
/// byte first. UTF-8 does not keep surrogates without a partner, and SQLite's TEXT is not made for zeros.
struct TextValue {
    std::string bytes;
    bool isText;
};

TextValue encodeText(const std::u16string& text);

/// A node as a column holds it; NULL in the column where there is none.

/// One run of a statement, which ends with the object.
class Query {
public:
    /// Binds `values` to the parameters of `statement` in their order.
    template <class... Values>
    explicit Query(const Statement& statement, const Values&... values) : statement_(*statement) {
        int index = 0;
        (bind(++index, values), ...);
    }

    ~Query() { sqlite3_reset(&statement_); }

    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    /// Moves on to the next row, or to the first. @return whether there is one
    /// @throws SqliteError
    bool next();

    std::int64_t integer(int column) const { return sqlite3_column_int64(&statement_, column); }
    bool isNull(int column) const { return sqlite3_column_type(&statement_, column) == SQLITE_NULL; }

    /// Valid until the next row.
    std::string_view bytes(int column) const;

    NodeValue node(int column) const;

    /// No value if the column holds what `encodeText` never makes.
    std::optional<std::u16string> text(int column) const;

private:
    void bind(int index, std::int64_t value);
    void bind(int index, const TextValue& value);
    void bind(int index, const NodeValue& value);
    void require(int code) const;

    sqlite3_stmt& statement_;
};

/// Rolls back what was begun for `connection`, if anything was.
/// @return false if that failed: the transaction is still open
bool rollBack(sqlite3& connection) noexcept;

/// A transaction, rolled back at its end unless it was committed.
class Transaction {
public:
    /// @param begin the statement that opens it
    Transaction(sqlite3& connection, const char* begin) : connection_(connection) { execute(connection_, begin); }

    ~Transaction() { rollBack(connection_); }

    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit() { execute(connection_, "COMMIT"); }

private:
    sqlite3& connection_;
};

}  // namespace stores::sqlite
