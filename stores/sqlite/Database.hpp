/// The file "metadata.db" of a store: when it is opened, made, read and written. How that goes together with the core
/// file and with other programs is written down at the top of Database.cpp.
///
/// One thread at a time may use an object.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "host/Path.hpp"
#include "store_support/FileVersion.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/sqlite/PathEdit.hpp"
#include "stores/sqlite/PathTable.hpp"
#include "stores/sqlite/SeenChanges.hpp"
#include "stores/sqlite/Sqlite.hpp"

namespace stores::sqlite {

extern const std::u16string& sqliteName;

/// A change, and whether it changes something. May be asked several times.
using Edit = std::function<bool(PathEdit& edit)>;

class Database {
public:
    /// Opens the database, if the folder has one that belongs to a project.
    /// @param folder the metadata folder
    /// @param lockLimit how long to wait for another program
    /// @throws project::metadata::MetadataReadFailure naming the file and the cause
    Database(const host::Path& folder, store_support::JobRunner runJob, std::chrono::milliseconds lockLimit);

    ~Database() { close(); }

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const host::Path& getFile() const noexcept { return file_; }

    /// Opens the database, or opens it anew if it is another one by now. @return whether there is one
    /// @throws project::metadata::MetadataReadFailure naming the file and the cause
    bool open();

    /// Reads from `table`, and says in `seen` which rows the store's user knows by that.
    using Read = std::function<void(PathTable& table, SeenChanges& seen)>;

    /// Calls `action` with the tables as they are at one moment; not at all if there is no database.
    /// @throws project::metadata::MetadataReadFailure naming the file and the cause
    void read(const Read& action);

    /// Carries out `edit` as one batch and one job, unless it changes nothing; makes the project if there is none.
    /// @throws project::metadata::MetadataWriteFailure, ReadOnlyMetadataFailure naming the file or folder and the
    ///         cause; FailedToMakeMetadataWritable; as `read`
    void change(const Edit& edit);

private:
    void close() noexcept;
    void connect();
    void reconnect(const std::function<void()>& meanwhile = [] {});
    void readOpened(const Read& action);
    bool wouldChange(const Edit& edit);
    void write(const Edit& edit);
    void tryToWrite(const Edit& edit);
    void turnLogOn();

    /// @return false if somebody else has made the project meanwhile
    bool create(const Edit& edit);
    void createFile(const host::Path& staged, const Edit& edit) const;

    /// Does `action`, again and again while somebody else holds a lock, until the limit is reached. SQLite itself waits
    /// for most locks, but not where two that wait could wait for each other.
    void waitWhileLocked(const std::function<void()>& action) const;

    [[noreturn]] void raiseReadFailure(const SqliteError& error) const;
    std::u16string getCause(const SqliteError& error) const;

    host::Path folder_;
    host::Path file_;
    host::Path coreFile_;
    store_support::JobRunner runJob_;
    std::chrono::milliseconds lockLimit_;

    store_support::FileVersion version_{};  // of the file when it was opened
    bool isImmutable_ = false;              // opened as a file that nobody can change
    bool isLogSettled_ = false;             // the log is on, or cannot be
    Connection connection_;
    std::optional<PathTable> table_;
    SeenChanges seen_;
};

}  // namespace stores::sqlite
