/// The C interface of libpq with owners for its objects, values of our own types, and exceptions.
///
/// Statements are constants, prepared on first use, and values go beside them, in libpq's binary format: no text of a
/// statement is ever put together. One thread at a time may use a connection.
#pragma once

#include <libpq-fe.h>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_hash.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "store_support/NodeBlob.hpp"
#include "stores/Names.hpp"

namespace stores::postgresql {

using boost::uuids::uuid;

/// What the server refused, or that the way to it is gone. `what()` is the cause in UTF-8, one line.
class ServerError : public std::runtime_error {
public:
    /// @param state the code that the SQL standard has for it; empty if the server has said nothing
    ServerError(const std::string& cause, std::string state, bool isLost)
        : std::runtime_error(cause), state_(std::move(state)), isLost_(isLost) {}

    const std::string& state() const noexcept { return state_; }

    /// Whether the connection is gone, so that what was under way on the server may have been done or not.
    bool isLost() const noexcept { return isLost_; }

    /// Whether the same may succeed if it is tried once more: somebody else was faster, or the server stops or starts.
    bool isPassing() const noexcept;

private:
    std::string state_;
    bool isLost_;
};

/// A statement with parameters $1, $2 and so on. Statements are constants that live as long as the process.
struct Statement {
    const char* name;
    const char* sql;
};

/// The values of a statement's parameters, in their order.
class Arguments {
public:
    Arguments& add(const uuid& value);
    Arguments& add(std::int64_t value);
    Arguments& add(const std::string& text);

    /// Arrays. The type of their elements is known by the type of the values: uuid, bigint, bytea.
    Arguments& add(const std::vector<uuid>& values);
    Arguments& add(const std::vector<std::int64_t>& values);
    Arguments& add(const std::vector<NodeValue>& values);
    Arguments& add(const std::vector<std::string>& values);

    const std::vector<std::string>& values() const noexcept { return values_; }

private:
    std::vector<std::string> values_;
};

struct ResultCloser {
    void operator()(PGresult* result) const { PQclear(result); }
};

/// The rows that a statement has returned.
class Result {
public:
    explicit Result(PGresult* result) : result_(result) {}

    int size() const { return PQntuples(result_.get()); }
    bool isNull(int row, int column) const { return PQgetisnull(result_.get(), row, column) != 0; }

    /// @throws ServerError if the column holds a value of another size than the type has
    uuid id(int row, int column) const;
    std::int64_t integer(int row, int column) const;
    bool boolean(int row, int column) const;

    /// Valid as long as the object.
    std::string_view bytes(int row, int column) const;
    NodeValue node(int row, int column) const;

private:
    std::string_view bytes(int row, int column, std::size_t size) const;

    std::unique_ptr<PGresult, ResultCloser> result_;
};

/// One run of a statement.
struct Call {
    const Statement& statement;
    Arguments arguments = {};
};

/// Whether the user's wish to stop ends the waiting for an answer, and the connection with it.
enum class Patience { interruptible, untilAnswered };

class Connection {
public:
    using Clock = std::chrono::steady_clock;

    /// Connects to the server that the user's libpq service file has under the name `service`.
    /// @throws ServerError naming the cause, also if it takes until `end`; host::InterruptedException
    Connection(const std::string& service, Clock::time_point end);

    /// Runs `calls` in their order, with one round trip. The first one that fails ends the transaction that is open,
    /// and those after it are not run.
    /// @return what each of them returns
    /// @throws ServerError; host::InterruptedException if that is allowed. No transaction is open then, unless the
    ///         connection is gone.
    std::vector<Result> run(const std::vector<Call>& calls, Patience patience);

    /// From now on takes notice of what the server tells with `text` on a channel that this session listens to.
    void expect(std::string text);

    /// Whether the server has told that since the last call.
    bool takeNotice();

    /// Waits until the server tells something that is expected, until `end`, or until the file descriptor `other` can
    /// be read, -1 for none. A connection that breaks meanwhile is closed then.
    /// @return whether the server has told something; `takeNotice` will say so too
    /// @throws host::InterruptedException
    bool waitForNotice(int other, Clock::time_point end);

    /// Whether it can be used.
    bool isOpen() const noexcept { return connection_ != nullptr; }

    /// Rolls back the open transaction, if there is one. What fails there closes the connection.
    void rollBack() noexcept;

private:
    struct Closer {
        void operator()(PGconn* connection) const { PQfinish(connection); }
    };

    void connect(const std::string& service, Clock::time_point end);
    std::vector<Result> exchange(const std::vector<Call>& calls, Patience patience);
    void send(const Call& call, Patience patience, std::vector<const Statement*>& beingPrepared);
    Result takeAnswer(Patience patience, std::optional<ServerError>& error);

    /// Hands over to the system what is to be sent, and takes in what comes meanwhile.
    void flush(Patience patience);

    PGresult* getResult(Patience patience);

    /// @return whether the socket is ready before `end`
    bool wait(short events, Patience patience, std::optional<Clock::time_point> end = std::nullopt);

    void readNotices();

    /// Closes the connection. @throws ServerError
    [[noreturn]] void lose(const std::string& cause);
    [[noreturn]] void lose();

    std::unique_ptr<PGconn, Closer> connection_;
    std::set<const Statement*> prepared_;
    std::string expected_;    // what the server may tell
    bool isNoticed_ = false;  // whether it has
};

/// Rolls back at its end what is open then.
class OpenTransaction {
public:
    explicit OpenTransaction(Connection& connection) : connection_(connection) {}
    ~OpenTransaction() { connection_.rollBack(); }

    OpenTransaction(const OpenTransaction&) = delete;
    OpenTransaction& operator=(const OpenTransaction&) = delete;

private:
    Connection& connection_;
};

}  // namespace stores::postgresql
