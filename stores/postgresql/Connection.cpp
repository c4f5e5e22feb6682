#include "stores/postgresql/Connection.hpp"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/Interruption.hpp"

namespace stores::postgresql {

namespace {

/// The binary format of the protocol puts the highest byte first.
template <class Integer>
void appendInteger(std::string& bytes, Integer value) {
    for (int shift = static_cast<int>(sizeof value) * 8 - 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>(static_cast<std::uint64_t>(value) >> shift & 0xFFU);
}

std::uint64_t readInteger(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8U | static_cast<unsigned char>(byte);
    return value;
}

void appendValue(std::string& bytes, const uuid& value) {
    appendInteger(bytes, std::int32_t{16});
    bytes.append(value.begin(), value.end());
}

void appendValue(std::string& bytes, std::int64_t value) {
    appendInteger(bytes, std::int32_t{8});
    appendInteger(bytes, value);
}

void appendValue(std::string& bytes, std::string_view value) {
    appendInteger(bytes, static_cast<std::int32_t>(value.size()));
    bytes += value;
}

void appendValue(std::string& bytes, const std::string& value) {
    appendValue(bytes, std::string_view(value));
}

void appendValue(std::string& bytes, const NodeValue& value) {
    if (value)
        appendValue(bytes, std::string_view(*value));
    else
        appendInteger(bytes, std::int32_t{-1});
}

// The numbers of types, which are the same on every server (pg_type.dat of PostgreSQL).
constexpr std::uint32_t typeBytea = 17;
constexpr std::uint32_t typeBigint = 20;
constexpr std::uint32_t typeUuid = 2950;

/// An array of one dimension: their number, whether there are NULLs, the type, the length and the first index; then
/// each element with its length before it.
template <class Value>
std::string encodeArray(std::uint32_t type, const std::vector<Value>& values) {
    std::string bytes;
    appendInteger(bytes, std::int32_t{1});
    appendInteger(bytes, std::int32_t{1});
    appendInteger(bytes, type);
    appendInteger(bytes, static_cast<std::int32_t>(values.size()));
    appendInteger(bytes, std::int32_t{1});
    for (const Value& value : values)
        appendValue(bytes, value);
    return bytes;
}

/// What libpq or a server says, as one line of bounded length.
std::string toLine(const char* message) {
    constexpr std::size_t longest = 500;
    std::string line;
    for (const char* byte = message; *byte != '\0'; ++byte) {
        if (*byte == '\n' && byte[1] != '\0')
            line += "; ";
        else if (*byte != '\n' && *byte != '\t')
            line += *byte;
    }
    if (line.size() > longest) {
        line.resize(longest);
        while (!line.empty() && (static_cast<unsigned char>(line.back()) & 0xC0U) == 0x80U)
            line.pop_back();
        line += "...";
    }
    return line;
}

ServerError makeError(const PGresult& result) {
    const char* const state = PQresultErrorField(&result, PG_DIAG_SQLSTATE);
    const char* const primary = PQresultErrorField(&result, PG_DIAG_MESSAGE_PRIMARY);
    return {toLine(primary ? primary : PQresultErrorMessage(&result)), state ? state : "", false};
}

/// Lets a connection whose other end is gone for good end after about half a minute, whatever the system's rules are.
/// Nothing comes of it where the connection is none that could get stuck.
void noticeDeadPeer(int socket) {
    constexpr std::pair<int, int> options[] = {
        {TCP_KEEPIDLE, 15}, {TCP_KEEPINTVL, 5}, {TCP_KEEPCNT, 3}, {TCP_USER_TIMEOUT, 30000}};
    for (const auto& [option, value] : options)
        setsockopt(socket, IPPROTO_TCP, option, &value, sizeof value);
}

}  // namespace

bool ServerError::isPassing() const noexcept {
    // In their order: serialization failure, deadlock; the server is shut down, has crashed, or starts; it has ended
    // the connection.
    constexpr std::string_view passing[] = {"40001", "40P01", "57P01", "57P02", "57P03", "57P05", "25P03"};
    return isLost_ || std::find(std::begin(passing), std::end(passing), state_) != std::end(passing);
}

Arguments& Arguments::add(const uuid& value) {
    values_.emplace_back(value.begin(), value.end());
    return *this;
}

Arguments& Arguments::add(std::int64_t value) {
    appendInteger(values_.emplace_back(), value);
    return *this;
}

Arguments& Arguments::add(const std::string& text) {
    values_.push_back(text);
    return *this;
}

Arguments& Arguments::add(const std::vector<uuid>& values) {
    values_.push_back(encodeArray(typeUuid, values));
    return *this;
}

Arguments& Arguments::add(const std::vector<std::int64_t>& values) {
    values_.push_back(encodeArray(typeBigint, values));
    return *this;
}

Arguments& Arguments::add(const std::vector<NodeValue>& values) {
    values_.push_back(encodeArray(typeBytea, values));
    return *this;
}

Arguments& Arguments::add(const std::vector<std::string>& values) {
    values_.push_back(encodeArray(typeBytea, values));
    return *this;
}

std::string_view Result::bytes(int row, int column) const {
    return {PQgetvalue(result_.get(), row, column), static_cast<std::size_t>(PQgetlength(result_.get(), row, column))};
}

std::string_view Result::bytes(int row, int column, std::size_t size) const {
    const std::string_view value = bytes(row, column);
    if (value.size() != size)
        throw ServerError("a column has another type than expected", "", false);
    return value;
}

uuid Result::id(int row, int column) const {
    uuid value{};
    const std::string_view stored = bytes(row, column, value.size());
    std::copy(stored.begin(), stored.end(), value.begin());
    return value;
}

std::int64_t Result::integer(int row, int column) const {
    return static_cast<std::int64_t>(readInteger(bytes(row, column, sizeof(std::int64_t))));
}

bool Result::boolean(int row, int column) const {
    return bytes(row, column, 1).front() != '\0';
}

NodeValue Result::node(int row, int column) const {
    return isNull(row, column) ? std::nullopt : NodeValue(bytes(row, column));
}

Connection::Connection(const std::string& service, Clock::time_point end) {
    connect(service, end);
}

void Connection::connect(const std::string& service, Clock::time_point end) {
    // Whatever else there is to say, the user says it, in the service file and where libpq looks besides.
    const std::array<const char*, 4> keywords{"service", "client_encoding", "fallback_application_name", nullptr};
    const std::array<const char*, 4> values{service.c_str(), "UTF8", "project_metadata", nullptr};
    connection_.reset(PQconnectStartParams(keywords.data(), values.data(), 0));
    if (!connection_)
        throw std::bad_alloc();
    PQsetNoticeProcessor(
        connection_.get(), [](void*, const char*) {}, nullptr);
    for (auto status = PGRES_POLLING_WRITING; status != PGRES_POLLING_OK; status = PQconnectPoll(connection_.get())) {
        if (status == PGRES_POLLING_FAILED || PQstatus(connection_.get()) == CONNECTION_BAD)
            lose();
        const short events = status == PGRES_POLLING_READING ? POLLIN : POLLOUT;
        if (!wait(events, Patience::interruptible, end))
            lose("it does not answer");
    }
    noticeDeadPeer(PQsocket(connection_.get()));
    if (PQsetnonblocking(connection_.get(), 1) != 0)
        lose();
}

std::vector<Result> Connection::run(const std::vector<Call>& calls, Patience patience) {
    try {
        return exchange(calls, patience);
    } catch (const ServerError&) {
        rollBack();
        throw;
    } catch (...) {
        connection_.reset();  // in the middle of an exchange it is of no more use
        throw;
    }
}

std::vector<Result> Connection::exchange(const std::vector<Call>& calls, Patience patience) {
    if (PQenterPipelineMode(connection_.get()) != 1)
        lose();
    std::vector<const Statement*> beingPrepared;
    for (const Call& call : calls)
        send(call, patience, beingPrepared);
    if (PQpipelineSync(connection_.get()) != 1)
        lose();
    flush(patience);
    std::vector<Result> results;
    results.reserve(calls.size());
    std::optional<ServerError> error;
    auto preparing = beingPrepared.begin();
    for (const Call& call : calls) {
        if (preparing != beingPrepared.end() && *preparing == &call.statement) {
            takeAnswer(patience, error);
            if (!error)
                prepared_.insert(&call.statement);
            ++preparing;
        }
        results.push_back(takeAnswer(patience, error));
    }
    const std::unique_ptr<PGresult, ResultCloser> end(getResult(patience));
    if (PQstatus(connection_.get()) == CONNECTION_BAD || PQresultStatus(end.get()) != PGRES_PIPELINE_SYNC) {
        const std::string cause = error ? error->what() : toLine(PQerrorMessage(connection_.get()));
        connection_.reset();
        throw ServerError(cause, error ? error->state() : "", true);
    }
    PQexitPipelineMode(connection_.get());
    readNotices();
    if (error)
        throw ServerError(*error);
    return results;
}

void Connection::send(const Call& call, Patience patience, std::vector<const Statement*>& beingPrepared) {
    const Statement& statement = call.statement;
    if (prepared_.count(&statement) == 0 &&
        std::find(beingPrepared.begin(), beingPrepared.end(), &statement) == beingPrepared.end()) {
        if (PQsendPrepare(connection_.get(), statement.name, statement.sql, 0, nullptr) != 1)
            lose();
        beingPrepared.push_back(&statement);
    }
    std::vector<const char*> values;
    std::vector<int> lengths;
    for (const std::string& value : call.arguments.values()) {
        values.push_back(value.data());
        lengths.push_back(static_cast<int>(value.size()));
    }
    const std::vector<int> formats(values.size(), 1);
    if (PQsendQueryPrepared(connection_.get(), statement.name, static_cast<int>(values.size()), values.data(),
                            lengths.data(), formats.data(), 1) != 1)
        lose();
    flush(patience);
}

Result Connection::takeAnswer(Patience patience, std::optional<ServerError>& error) {
    Result answer(nullptr);
    while (PGresult* const part = getResult(patience)) {
        answer = Result(part);
        if (PQresultStatus(part) == PGRES_FATAL_ERROR && !error)
            error = makeError(*part);
        if (PQstatus(connection_.get()) == CONNECTION_BAD)
            break;
    }
    return answer;
}

void Connection::flush(Patience patience) {
    for (int left = PQflush(connection_.get()); left != 0; left = PQflush(connection_.get())) {
        if (left < 0)
            break;  // what the server has said last is still to be read
        wait(POLLIN | POLLOUT, patience);
        if (PQconsumeInput(connection_.get()) != 1)
            break;
    }
}

PGresult* Connection::getResult(Patience patience) {
    while (PQisBusy(connection_.get()) != 0) {
        wait(POLLIN, patience);
        if (PQconsumeInput(connection_.get()) != 1)
            break;
    }
    return PQgetResult(connection_.get());
}

bool Connection::wait(short events, Patience patience, std::optional<Clock::time_point> end) {
    constexpr std::chrono::milliseconds betweenLooks(100);
    while (true) {
        if (patience == Patience::interruptible)
            host::Interruption::throwIfRequested();
        auto time = betweenLooks;
        if (end)
            time = std::min(time, std::chrono::ceil<std::chrono::milliseconds>(*end - Clock::now()));
        if (time.count() < 0)
            return false;
        pollfd descriptor{PQsocket(connection_.get()), events, 0};
        const int ready = poll(&descriptor, 1, static_cast<int>(time.count()));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            lose(std::generic_category().message(errno));
        if (end && Clock::now() >= *end)
            return false;
    }
}

void Connection::expect(std::string text) {
    expected_ = std::move(text);
    isNoticed_ = false;
}

bool Connection::takeNotice() {
    return std::exchange(isNoticed_, false);
}

bool Connection::waitForNotice(int other, Clock::time_point end) {
    constexpr std::chrono::milliseconds betweenLooks(100);
    while (true) {
        readNotices();
        if (isNoticed_)
            return true;
        host::Interruption::throwIfRequested();
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        const auto time = std::clamp(left, std::chrono::milliseconds(0), betweenLooks);
        std::array<pollfd, 2> polled{pollfd{PQsocket(connection_.get()), POLLIN, 0}, pollfd{other, POLLIN, 0}};
        const int ready = poll(polled.data(), polled.size(), static_cast<int>(time.count()));
        if ((ready < 0 && errno != EINTR) || (polled[0].revents != 0 && PQconsumeInput(connection_.get()) != 1)) {
            connection_.reset();
            return false;
        }
        if (polled[1].revents != 0 || (ready == 0 && Clock::now() >= end))
            return false;
    }
}

/// None of them is kept, so that they need no memory however long nobody asks for them.
void Connection::readNotices() {
    struct Releaser {
        void operator()(PGnotify* notice) const { PQfreemem(notice); }
    };
    while (const std::unique_ptr<PGnotify, Releaser> notice{PQnotifies(connection_.get())})
        isNoticed_ = isNoticed_ || notice->extra == expected_;
}

void Connection::rollBack() noexcept {
    if (!connection_ || PQtransactionStatus(connection_.get()) == PQTRANS_IDLE)
        return;
    static constexpr Statement rollback{"rollback", "ROLLBACK"};
    try {
        exchange({{rollback}}, Patience::untilAnswered);
    } catch (...) {
        connection_.reset();
    }
}

void Connection::lose(const std::string& cause) {
    connection_.reset();
    throw ServerError(cause, "", true);
}

void Connection::lose() {
    lose(toLine(PQerrorMessage(connection_.get())));
}

}  // namespace stores::postgresql
