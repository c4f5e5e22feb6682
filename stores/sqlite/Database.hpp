/// The file "metadata.db" of a store: when it is opened, made, read and written. How that goes together with the core
/// file and with other programs is written down at the top of Database.cpp.
///
/// One thread at a time may use an object.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "store_support/FileWatch.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/Names.hpp"
#include "stores/sqlite/FileCheck.hpp"
#include "stores/sqlite/PathEdit.hpp"
#include "stores/sqlite/PathTable.hpp"
#include "stores/sqlite/Sqlite.hpp"

namespace stores::sqlite {

extern const std::u16string& sqliteName;

/// Whether the metadata folder `folder` holds a database of this store. It may be in use.
/// @throws MetadataReadFailure if that cannot be found out
bool holdsDatabase(const Path& folder);

/// A change, and whether it changes something. May be asked several times.
using Edit = std::function<bool(PathEdit& edit)>;

class Database {
public:
    /// Opens the database, if the folder has one that belongs to a project.
    /// @param folder the metadata folder
    /// @param lockLimit how long to wait for another program
    /// @throws MetadataReadFailure naming the file and the cause
    Database(const Path& folder, JobRunner runJob, std::chrono::milliseconds lockLimit);

    ~Database() { close(); }

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const Path& getFile() const noexcept { return file_; }
    const Path& getCoreFile() const noexcept { return coreFile_; }

    /// What is wrong with the core file. It says no more than the kind of store, and a sound database can be used
    /// beside a damaged one.
    std::optional<std::u16string> findCoreFileDamage() const;

    /// What a sound core file holds besides, in words, that would be gone with it when the project is converted; empty
    /// if there is nothing.
    std::u16string findForeignInCoreFile() const;

    /// Opens the database, or opens it anew if it is another one by now. @return whether there is one
    /// @throws MetadataReadFailure naming the file and the cause
    bool open();

    /// Reads from `table`, and says in `seen` which rows the store's user knows by that.
    using Read = std::function<void(PathTable& table, SeenChanges& seen)>;

    /// Calls `action` with the tables as they are at one moment; not at all if there is no database.
    /// @throws MetadataReadFailure naming the file and the cause
    void read(const Read& action);

    /// What is known of others' changes, if everything is as `read` found it last; null if it may not be. Costs less
    /// than `read`.
    /// @throws MetadataReadFailure if that cannot be found out
    SeenChanges* findUnchanged();

    /// Between these two, `findUnchanged` looks once, and then answers the same until the next `read` or change.
    /// Nothing is held for that long, neither a transaction nor a lock: others change what they like.
    void beginReading() noexcept { ++readings_; }
    void endReading() noexcept { hasLooked_ = --readings_ > 0 && hasLooked_; }

    bool isReading() const noexcept { return readings_ > 0; }

    /// How often `read` has found something that may have been changed since it was called last.
    std::uint64_t getGeneration() const noexcept { return generation_; }

    /// Which nodes the store's user takes to be there.
    ToldNodes& told() noexcept { return seen_.told(); }

    /// Carries out `edit` as one batch and one job, unless it changes nothing; makes the project if there is none.
    /// @throws MetadataWriteFailure, ReadOnlyMetadataFailure naming the file or folder and the
    ///         cause; FailedToMakeMetadataWritable; as `read`
    void change(const Edit& edit);

    /// As that, but makes no project. @return whether there is one
    bool changeExisting(const Edit& edit);

private:
    void close() noexcept;

    /// Whether the open file has `status`.
    bool isOpened(const struct stat& status) const;

    /// The file must exist. What is known of others' changes stays, if it is the file that was open last.
    void connect();
    void readOpened(const Read& action);

    /// To be called first in each transaction.
    /// @param before the mark before it
    void look(const std::optional<ChangeMark>& before);

    /// No value while nothing is open, or if it cannot be had.
    std::optional<ChangeMark> readMark() const;

    /// To be called at the end of an operation, also of one that was refused: neither a transaction stays open, nor
    /// a lock.
    void finish() noexcept;

    /// To be called when SQLite has failed, which may still take locks for its own that it could not give back: the
    /// next operation opens the database again.
    void drop() noexcept;
    bool wouldChange(const Edit& edit);

    /// Removes what the making of the project, which alone takes the lock of the folder, may have left there.
    /// @throws as `FolderLock`
    void tidyUp() const;

    void write(const Edit& edit);
    void tryToWrite(const Edit& edit);
    void turnLogOn();

    /// @return false if somebody else has made the project meanwhile
    bool create(const Edit& edit);
    void createFile(const Path& staged, const Edit& edit);

    /// Does `action`, again and again while somebody else holds a lock, until the limit is reached. SQLite itself waits
    /// for most locks, but not where two that wait could wait for each other.
    void waitWhileLocked(const std::function<void()>& action) const;

    [[noreturn]] void raiseReadFailure(const SqliteError& error) const;
    std::u16string getCause(const SqliteError& error) const;

    Path folder_;
    Path file_;
    Path coreFile_;
    JobRunner runJob_;
    std::chrono::milliseconds lockLimit_;

    HeldFile held_;              // the file that was opened or made last
    bool isImmutable_ = false;   // opened as a file that nobody can change
    bool isLogSettled_ = false;  // the log is on, or cannot be
    std::int64_t budget_ = 0;    // of `connection_`
    Connection connection_;
    std::optional<PathTable> table_;
    std::int64_t schemaVersion_ = 0;  // of the schema that was checked
    SeenChanges seen_;                // of the changes in `held_`

    // What tells that nothing has changed since the last reading:
    bool isLogOn_ = false;
    std::optional<ChangeMark> mark_;  // no value if it is not known
    FileWatch watch_;                 // of the file that is open
    std::uint64_t generation_ = 0;

    int readings_ = 0;
    bool hasLooked_ = false;  // since the first of them began
};

}  // namespace stores::sqlite
