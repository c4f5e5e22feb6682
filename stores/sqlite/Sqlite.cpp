#include "stores/sqlite/Sqlite.hpp"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "stores/sqlite/FileLocks.hpp"

namespace stores::sqlite {

namespace {

/// The operating system's reason for an error that has to do with files, 0 if there is none.
int getSystemError(sqlite3* connection, int code) {
    const int primary = code & 0xFF;
    if (!connection || (primary != SQLITE_IOERR && primary != SQLITE_CANTOPEN && primary != SQLITE_FULL))
        return 0;
    if (const int reason = sqlite3_system_errno(connection))
        return reason;
    // A commit that fails leaves it with the file only.
    int reason = 0;
    sqlite3_file_control(connection, "main", SQLITE_FCNTL_LAST_ERRNO, &reason);
    return reason;
}

std::string describe(sqlite3* connection, int code) {
    const int reason = getSystemError(connection, code);
    // SQLite opens what it cannot make for reading only, and remembers why that failed.
    if ((code & 0xFF) == SQLITE_CANTOPEN && reason == ENOENT)
        return "it, or a file that SQLite has beside it, can neither be opened nor made";
    const std::string text = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
    return reason == 0 ? text : text + ": " + std::generic_category().message(reason);
}

constexpr int stepsBetweenLooks = 100'000;

/// @return other than 0 if SQLite is to give up what it does
int giveUp(void* budget) {
    std::int64_t& left = *static_cast<std::int64_t*>(budget);
    left -= stepsBetweenLooks;
    try {
        host::Interruption::throwIfRequested();
    } catch (const host::InterruptedException&) {
        return 1;
    }
    return left < 0 ? 1 : 0;
}

/// The file of the main database; null if it has none.
sqlite3_file* findFile(sqlite3& connection) {
    sqlite3_file* file = nullptr;
    const int code = sqlite3_file_control(&connection, "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file));
    return code == SQLITE_OK && file && file->pMethods ? file : nullptr;
}

/// Whether `bytes`, which are `text` in UTF-8, are kept as they are in a column of TEXT.
bool isKeptAsText(const std::string& bytes, const std::u16string& text) {
    return bytes.find('\0') == std::string::npos && fromUtf8(bytes) == text;
}

}  // namespace

SqliteError::SqliteError(sqlite3* connection, int code)
    : std::runtime_error(describe(connection, code)), primary_(code & 0xFF) {}

Connection openConnection(const std::string& name, int flags) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    Connection connection(opened);
    if (code != SQLITE_OK)
        throw SqliteError(opened, code);
    if (sqlite3_file* const file = findFile(*connection))
        waitOnlyForHolders(*file);
    return connection;
}

bool isStuck(sqlite3& connection) {
    const sqlite3_file* const file = findFile(connection);
    return file && isStuck(*file);
}

void distrust(sqlite3& connection, std::int64_t& budget) {
    // Triggers and views are refused when the schema is looked at; nothing of them is to run before or after that.
    constexpr std::pair<int, int> switches[] = {
        {SQLITE_DBCONFIG_DEFENSIVE, 1},      {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
        {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0}, {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
        {SQLITE_DBCONFIG_ENABLE_FKEY, 0},    {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
    };
    for (const auto& [option, value] : switches) {
        const int code = sqlite3_db_config(&connection, option, value, nullptr);
        if (code != SQLITE_OK)
            throw SqliteError(&connection, code);
    }
    constexpr std::pair<int, int> limits[] = {
        {SQLITE_LIMIT_SQL_LENGTH, 10000},       {SQLITE_LIMIT_COLUMN, 20},
        {SQLITE_LIMIT_EXPR_DEPTH, 50},          {SQLITE_LIMIT_COMPOUND_SELECT, 4},
        {SQLITE_LIMIT_VDBE_OP, 25000},          {SQLITE_LIMIT_FUNCTION_ARG, 8},
        {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 50}, {SQLITE_LIMIT_VARIABLE_NUMBER, 10},
        {SQLITE_LIMIT_TRIGGER_DEPTH, 1},        {SQLITE_LIMIT_ATTACHED, 0},
        {SQLITE_LIMIT_WORKER_THREADS, 0},
    };
    for (const auto& [limit, value] : limits)
        sqlite3_limit(&connection, limit, value);
    sqlite3_progress_handler(&connection, stepsBetweenLooks, giveUp, &budget);
    execute(connection, "PRAGMA cell_size_check = ON");
}

void execute(sqlite3& connection, const char* sql) {
    const int code = sqlite3_exec(&connection, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        throw SqliteError(&connection, code);
}

// What is read here without the help of SQLite is described in https://sqlite.org/fileformat2.html, "The Database
// Header", and https://sqlite.org/walformat.html, "The WAL-Index Header".

bool hasLog(sqlite3& connection) {
    // That for reading: by this one SQLite decides, also where damage makes the one for writing differ.
    constexpr int versionPlace = 19;
    constexpr char versionWithLog = 2;
    char version = 0;
    sqlite3_file* const file = findFile(connection);
    return file && file->pMethods->xRead(file, &version, 1, versionPlace) == SQLITE_OK && version == versionWithLog;
}

// Without a log each transaction raises the counter in the header of the file. With one it changes the header of the
// log's index, which lies in shared memory; it is written twice, this copy last, and only then is it committed.
std::optional<ChangeMark> readChangeMark(sqlite3& connection, bool isLogOn) {
    constexpr int counterPlace = 24;
    constexpr int counterSize = 4;
    constexpr int indexRegionSize = 32768;
    sqlite3_file* const file = findFile(connection);
    if (!file)
        return std::nullopt;
    ChangeMark mark{};
    if (!isLogOn) {
        const int code = file->pMethods->xRead(file, mark.data(), counterSize, counterPlace);
        return code == SQLITE_OK ? std::optional(mark) : std::nullopt;
    }
    void volatile* index = nullptr;
    if (file->pMethods->iVersion < 2 || file->pMethods->xShmMap(file, 0, indexRegionSize, 0, &index) != SQLITE_OK ||
        !index) {
        return std::nullopt;
    }
    std::copy_n(static_cast<const volatile char*>(index), mark.size(), mark.begin());
    return mark;
}

Statement prepare(sqlite3& connection, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(&connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK)
        throw SqliteError(&connection, code);
    return Statement(statement);
}

TextValue encodeText(const std::u16string& text) {
    std::string utf8 = toUtf8(text);
    if (isKeptAsText(utf8, text))
        return {std::move(utf8), true};
    std::string units;
    for (const char16_t unit : text) {
        units += static_cast<char>(unit & 0xFF);
        units += static_cast<char>(unit >> 8);
    }
    return {std::move(units), false};
}

bool Query::next() {
    const int code = sqlite3_step(&statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE)
        throw SqliteError(sqlite3_db_handle(&statement_), code);
    return code == SQLITE_ROW;
}

std::string_view Query::bytes(int column) const {
    const void* const data = sqlite3_column_blob(&statement_, column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(&statement_, column));
    // Larger values are fetched from other pages of the file only now. That may fail for any reason.
    if (!data && size > 0) {
        sqlite3* const connection = sqlite3_db_handle(&statement_);
        throw SqliteError(connection, sqlite3_errcode(connection));
    }
    return {static_cast<const char*>(data), size};
}

NodeValue Query::node(int column) const {
    return isNull(column) ? std::nullopt : NodeValue(bytes(column));
}

std::optional<std::u16string> Query::text(int column) const {
    const int type = sqlite3_column_type(&statement_, column);
    const std::string_view value = bytes(column);
    // Nearly all texts are like this, and `encodeText` makes the same of them.
    const auto isAscii = [](char byte) { return static_cast<unsigned char>(byte - 1) < 0x7F; };
    if (type == SQLITE_TEXT && std::all_of(value.begin(), value.end(), isAscii))
        return std::u16string(value.begin(), value.end());
    std::u16string text;
    if (type == SQLITE_TEXT) {
        text = fromUtf8(value);
    } else {
        for (std::size_t i = 0; i + 1 < value.size(); i += 2) {
            const auto low = static_cast<unsigned char>(value[i]);
            const auto high = static_cast<unsigned char>(value[i + 1]);
            text += static_cast<char16_t>(low | high << 8);
        }
    }
    const TextValue expected = encodeText(text);
    if (expected.isText != (type == SQLITE_TEXT) || expected.bytes != value)
        return std::nullopt;
    return text;
}

void Query::bind(int index, std::int64_t value) {
    require(sqlite3_bind_int64(&statement_, index, value));
}

void Query::bind(int index, const TextValue& value) {
    if (value.isText)
        require(sqlite3_bind_text64(&statement_, index, value.bytes.data(), value.bytes.size(), SQLITE_TRANSIENT,
                                    SQLITE_UTF8));
    else
        bind(index, NodeValue(value.bytes));
}

void Query::bind(int index, const NodeValue& value) {
    if (value)
        require(sqlite3_bind_blob64(&statement_, index, value->data(), value->size(), SQLITE_TRANSIENT));
    else
        require(sqlite3_bind_null(&statement_, index));
}

void Query::require(int code) const {
    if (code != SQLITE_OK)
        throw SqliteError(sqlite3_db_handle(&statement_), code);
}

bool rollBack(sqlite3& connection) noexcept {
    if (sqlite3_get_autocommit(&connection) == 0)
        sqlite3_exec(&connection, "ROLLBACK", nullptr, nullptr, nullptr);
    return sqlite3_get_autocommit(&connection) != 0;
}

}  // namespace stores::sqlite
