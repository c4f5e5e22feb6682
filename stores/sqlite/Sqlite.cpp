#include "stores/sqlite/Sqlite.hpp"

#include <system_error>

#include "host/Text.hpp"

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
    const std::string text = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
    return reason == 0 ? text : text + ": " + std::generic_category().message(reason);
}

/// Whether `bytes`, which are `text` in UTF-8, are kept as they are in a column of TEXT.
bool isKeptAsText(const std::string& bytes, const std::u16string& text) {
    return bytes.find('\0') == std::string::npos && host::fromUtf8(bytes) == text;
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
    return connection;
}

void execute(sqlite3& connection, const char* sql) {
    const int code = sqlite3_exec(&connection, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        throw SqliteError(&connection, code);
}

Statement prepare(sqlite3& connection, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(&connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK)
        throw SqliteError(&connection, code);
    return Statement(statement);
}

TextValue encodeText(const std::u16string& text) {
    std::string utf8 = host::toUtf8(text);
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
    // Larger values are fetched from other pages of the file only now, and these may be damaged.
    if (!data && size > 0)
        throw SqliteError(nullptr, SQLITE_CORRUPT);
    return {static_cast<const char*>(data), size};
}

NodeValue Query::node(int column) const {
    return isNull(column) ? std::nullopt : NodeValue(bytes(column));
}

std::optional<std::u16string> Query::text(int column) const {
    const int type = sqlite3_column_type(&statement_, column);
    const std::string_view value = bytes(column);
    std::u16string text;
    if (type == SQLITE_TEXT) {
        text = host::fromUtf8(value);
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

Transaction::~Transaction() {
    if (sqlite3_get_autocommit(&connection_) == 0)
        sqlite3_exec(&connection_, "ROLLBACK", nullptr, nullptr, nullptr);
}

}  // namespace stores::sqlite
