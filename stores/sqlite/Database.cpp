// The life of the file.
//
// A project has a database if it has a core file. Both come into being as one batch of files, the database with the
// first change in it, so there is never one without the other unless somebody has removed one. A core file without
// a database is damage. A database without a core file belongs to no project, but may be all that is left of one: it is
// neither read nor overwritten.
//
// At rest the database is a single file in SQLite's rollback mode. So reading needs no permission to write and makes no
// other files, and the file can be copied or kept under version control as it is. The first change of a store turns the
// write-ahead log on, which lets others read meanwhile and makes a batch cheap; the log stays on for as long as
// any store has the project open, and the last one that closes turns it off. Where there can be no log (SQLite
// needs shared memory for it), changes go through the rollback journal. A store that is killed leaves the log, and the
// next one that opens the database carries on with it.
//
// A file of the same name that replaces the database, as version control systems do it, is noticed by its inode, which
// no other file can have while this one is open; and all that is in it counts as changed by somebody else. What SQLite
// says of every database holds here too: it must not be replaced while its log is on in another program.

#include "stores/sqlite/Database.hpp"

#include <unistd.h>

#include <fstream>
#include <thread>
#include <utility>

#include "host/FileUtils.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"

namespace stores::sqlite {

using host::Path;
using project::metadata::FileJob;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;
using store_support::commit;
using store_support::FileBatch;
using store_support::FolderLock;
using store_support::getFileVersion;
using store_support::JobRunner;
using store_support::projectElementName;
using store_support::requireMetadataType;
using store_support::requireWritable;
using store_support::settle;

const std::u16string& sqliteName = *new std::u16string(u"sqlite");

namespace {

/// What is in the file may come from anywhere. A commit is to be on disk also where there is no log. 16 MB of memory
/// are enough for indices of a million paths.
constexpr const char* settings = "PRAGMA trusted_schema = OFF; PRAGMA synchronous = EXTRA; PRAGMA cache_size = -16000";

/// Unwinds the making of a project that somebody else has made meanwhile.
struct ProjectAppeared {};

/// The name of `file` for SQLite, which would take a name that begins with "file:" for a URI.
std::string getOpenName(const Path& file) {
    const std::string name = file.accessName();
    return name.front() == '/' ? name : "./" + name;
}

/// The URI of a file on a medium that nobody can write to.
std::string getImmutableUri(const Path& file) {
    std::string uri = "file:";
    for (const char byte : getOpenName(file)) {
        if (byte == '%')
            uri += "%25";
        else if (byte == '?')
            uri += "%3f";
        else if (byte == '#')
            uri += "%23";
        else
            uri += byte;
    }
    return uri + "?immutable=1";
}

Path getLogFile(const Path& file) {
    return Path(file.text() + u"-wal");
}

using Clock = std::chrono::steady_clock;

/// Turns the log of a database off that nobody else has open, without the help of shared memory.
void turnLogOffAlone(const Path& file) {
    const Connection connection = openConnection(getOpenName(file), SQLITE_OPEN_READWRITE);
    execute(*connection, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = DELETE");
    unlink((file.accessName() + "-shm").c_str());
}

}  // namespace

Database::Database(const Path& folder, JobRunner runJob, std::chrono::milliseconds lockLimit)
    : folder_(folder),
      file_(folder / u"metadata.db"),
      coreFile_(folder / project::metadata::coreFileName()),
      runJob_(std::move(runJob)),
      lockLimit_(lockLimit) {
    read([](PathTable& table, SeenChanges& seen) { seen = SeenChanges(table.getBatch()); });
}

bool Database::open() {
    const auto version = getFileVersion(file_);
    const bool isSame = version && (isImmutable_ ? *version == version_ : version->inode == version_.inode);
    if (connection_ && isSame)
        return true;
    close();
    settle(folder_);
    if (!host::FileUtils::existNoExcept(coreFile_))
        return false;
    try {
        waitWhileLocked([this] { connect(); });
    } catch (const SqliteError& error) {
        raiseReadFailure(error);
    }
    return true;
}

void Database::connect() {
    const auto version = getFileVersion(file_);
    if (!version)
        raise<MetadataReadFailure>(file_.text(), u"it is missing, while \"Project.xml\" beside it is there");
    const auto tryToOpen = [&](const std::string& name, int flags) {
        Connection connection = openConnection(name, flags);
        sqlite3_busy_timeout(connection.get(), static_cast<int>(lockLimit_.count()));
        execute(*connection, settings);
        requireTables(*connection, file_);
        table_.emplace(*connection, file_);
        connection_ = std::move(connection);
    };
    isImmutable_ = false;
    try {
        tryToOpen(getOpenName(file_), SQLITE_OPEN_READWRITE);
    } catch (const SqliteError& error) {
        // A database whose log was on when it was copied to where nothing can be written.
        if (!error.isCannotOpen() || getFileVersion(getLogFile(file_)))
            throw;
        isImmutable_ = true;
        tryToOpen(getImmutableUri(file_), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    }
    version_ = *version;
    isLogSettled_ = false;
}

void Database::close() noexcept {
    table_.reset();
    if (connection_ && sqlite3_db_readonly(connection_.get(), "main") == 0) {
        // Turns the log off if no other store has the database open, and does nothing otherwise.
        sqlite3_busy_timeout(connection_.get(), 0);
        sqlite3_exec(connection_.get(), "PRAGMA journal_mode = DELETE", nullptr, nullptr, nullptr);
    }
    connection_.reset();
    seen_ = SeenChanges();
}

void Database::reconnect(const std::function<void()>& meanwhile) {
    SeenChanges seen = std::move(seen_);
    close();
    meanwhile();
    connect();
    seen_ = std::move(seen);
}

void Database::read(const Read& action) {
    if (open())
        readOpened(action);
}

void Database::readOpened(const Read& action) {
    try {
        Transaction transaction(*connection_, "BEGIN");
        table_->forgetRows();
        // The first look takes the lock; nothing after it has to wait.
        waitWhileLocked([this] { table_->getBatch(); });
        action(*table_, seen_);
        transaction.commit();
    } catch (const SqliteError& error) {
        raiseReadFailure(error);
    }
}

void Database::change(const Edit& edit) {
    while (!open()) {
        if (create(edit))
            return;
    }
    if (wouldChange(edit))
        runJob_(FileJob({file_}, {}, [&] { write(edit); }));
}

bool Database::wouldChange(const Edit& edit) {
    bool changes = false;
    readOpened([&](PathTable& table, SeenChanges& seen) {
        PathEdit look(table, seen, PathEdit::Mode::look, 0);
        changes = edit(look);
    });
    return changes;
}

void Database::write(const Edit& edit) {
    if (!open())
        raise<MetadataWriteFailure>(file_.text(), u"its project has been removed meanwhile");
    requireMetadataType(folder_, sqliteName);
    requireWritable(file_);
    requireWritable(folder_);
    try {
        waitWhileLocked([&] { tryToWrite(edit); });
    } catch (const SqliteError& error) {
        raise<MetadataWriteFailure>(file_.text(), getCause(error));
    }
}

void Database::tryToWrite(const Edit& edit) {
    const bool wasReadOnly = sqlite3_db_readonly(connection_.get(), "main") != 0;
    if (wasReadOnly)
        reconnect();
    if (!isLogSettled_)
        turnLogOn();
    Transaction transaction(*connection_, "BEGIN IMMEDIATE");
    table_->forgetRows();
    const std::int64_t batch = table_->getBatch() + 1;
    PathEdit write(*table_, seen_, PathEdit::Mode::write, batch);
    if (!edit(write))
        return;
    table_->setBatch(batch);
    transaction.commit();
    seen_.addOwn(batch);
    // The first reader after a batch leaves a mark in the shared memory. It is to be this one, so that whoever only
    // looks from now on touches no file. If that fails, the batch is on disk all the same.
    sqlite3_exec(connection_.get(), "SELECT batch FROM state", nullptr, nullptr, nullptr);
}

void Database::turnLogOn() {
    execute(*connection_, "PRAGMA journal_mode = WAL");
    isLogSettled_ = true;
    try {
        table_->getBatch();
    } catch (const SqliteError& error) {
        if (error.isLock())
            throw;
        // There is no shared memory on this file system.
        reconnect([this] { turnLogOffAlone(file_); });
        isLogSettled_ = true;
    }
}

bool Database::create(const Edit& edit) {
    FileBatch batch;
    batch.folder = folder_;
    batch.filesToWrite = {file_, coreFile_};
    batch.write = [&](std::size_t index, const Path& staged) {
        if (batch.filesToWrite[index] == file_) {
            createFile(staged, edit);
        } else {
            project::metadata::MetadataNodeSpecification core(projectElementName);
            core.put(project::metadata::metadataTypeKey(), sqliteName);
            project::metadata::writeToFile(core, staged, true);
        }
    };
    try {
        runJob_(FileJob(batch.filesToWrite, {}, [&] {
            const FolderLock lock(folder_, lockLimit_);
            if (host::FileUtils::existNoExcept(coreFile_))
                throw ProjectAppeared();
            if (getFileVersion(file_)) {
                raise<MetadataWriteFailure>(
                    file_.text(),
                    u"it is there without a \"Project.xml\" beside it, and not overwritten; it may be "
                    u"what is left of a project");
            }
            commit(batch, lock);
        }));
    } catch (const ProjectAppeared&) {
        return false;
    }
    if (open())
        seen_.addOwn(1);
    return true;
}

void Database::createFile(const Path& staged, const Edit& edit) const {
    try {
        // SQLite would not give others the permissions that a new file usually has.
        std::ofstream(staged.accessName());
        const Connection connection = openConnection(getOpenName(staged), SQLITE_OPEN_READWRITE);
        execute(*connection, settings);
        // Nobody sees the file before it is complete, and it is flushed then.
        execute(*connection, "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF");
        Transaction transaction(*connection, "BEGIN");
        createTables(*connection);
        PathTable table(*connection, file_);
        const SeenChanges nothing;
        const std::int64_t batch = 1;
        PathEdit write(table, nothing, PathEdit::Mode::write, batch);
        edit(write);
        table.setBatch(batch);
        transaction.commit();
    } catch (const SqliteError& error) {
        raise<MetadataWriteFailure>(file_.text(), getCause(error));
    }
}

void Database::waitWhileLocked(const std::function<void()>& action) const {
    const auto end = Clock::now() + lockLimit_;
    while (true) {
        try {
            return action();
        } catch (const SqliteError& error) {
            if (!error.isLock() || Clock::now() >= end)
                throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void Database::raiseReadFailure(const SqliteError& error) const {
    raise<MetadataReadFailure>(file_.text(), getCause(error));
}

std::u16string Database::getCause(const SqliteError& error) const {
    // SQLite makes longer names from that of the file, and does not say that one is too long for it.
    constexpr std::size_t roomForEndings = 16;
    const auto longest = static_cast<std::size_t>(sqlite3_vfs_find(nullptr)->mxPathname);
    if (error.isCannotOpen() && file_.accessName().size() + roomForEndings > longest) {
        return u"its name, with the folders, is too long for SQLite, which takes about " +
               host::fromUtf8(std::to_string(longest)) + u" bytes";
    }
    if (!error.isLock())
        return host::fromUtf8(error.what());
    return u"another program has held it for more than " + host::fromUtf8(std::to_string(lockLimit_.count())) + u" ms";
}

}  // namespace stores::sqlite
