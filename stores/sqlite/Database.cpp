// The life of the file.
//
// A project has a database if it has a core file. Both come into being as one batch of files, the database with the
// first change in it, so there is never one without the other unless somebody has removed one. A core file without
// a database is damage. A database without a core file belongs to no project, but may be all that is left of one: it is
// neither opened nor overwritten. A store that has it open when the core file goes can still read it.
//
// At rest the database is a single file in SQLite's rollback mode. So reading needs no permission to write and makes no
// other files, and the file can be copied or kept under version control as it is. The first change of a store turns the
// write-ahead log on, which lets others read meanwhile and makes a batch cheap; the log stays on for as long as
// any store has the project open, and the last one that closes turns it off. Where there can be no log (SQLite
// needs shared memory for it), changes go through the rollback journal. A store that is killed leaves the log, and the
// next one that opens the database carries on with it.
//
// A file of the same name that replaces the database, as version control systems do it, is noticed by its inode, which
// no other file can have while this one is open; and all that is in it counts as changed by somebody else. So does an
// older content that is copied into the same file, by the number of its last batch. What SQLite says of every database
// holds here too: it must not be replaced while its log is on in another program.

#include "stores/sqlite/Database.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

#include "host/FileUtils.hpp"
#include "host/Interruption.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/XmlFile.hpp"

namespace stores::sqlite {

using project::metadata::FileJob;

const std::u16string& sqliteName = *new std::u16string(u"sqlite");

namespace {

const char16_t* const databaseName = u"metadata.db";

/// A commit is to be on disk also where there is no log. 16 MB of memory are enough for indices of a million paths.
constexpr const char* settings = "PRAGMA synchronous = EXTRA; PRAGMA cache_size = -16000";

// How many steps of SQLite's machine one transaction may take: more than any amount of paths that fits into memory, and
// more than it takes to look at all of a file several times. A damaged file can send SQLite around in it for years.
constexpr std::int64_t stepsToRead = 2'000'000'000;
constexpr std::int64_t stepsToWrite = 20'000'000'000;
constexpr std::int64_t stepsPerByte = 20;

/// What `error` says of its file; empty if it does not say.
const std::u16string& getCause(const MetadataReadFailure& error) {
    return std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(1));
}

/// Unwinds the making of a project that somebody else has made meanwhile.
struct ProjectAppeared {};

/// The name of `file` for SQLite, with the way to it resolved: SQLite is to follow no links by itself.
std::string getOpenName(const Path& file) {
    const std::string folder = project::metadata::getParentFolder(file).accessName();
    char* const resolved = realpath(folder.c_str(), nullptr);
    if (!resolved) {
        raise<MetadataReadFailure>(file.text(), fromUtf8(std::generic_category().message(errno)));
    }
    std::string name = resolved;
    std::free(resolved);
    return name + '/' + file.fileName().accessName();
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
    const Connection connection = openConnection(getOpenName(file), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
    execute(*connection, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = DELETE");
    unlink((file.accessName() + "-shm").c_str());
}

bool hasTables(sqlite3& connection, const Path& file) {
    try {
        requireTables(connection, file);
        return true;
    } catch (const MetadataReadFailure&) {
        return false;
    }
}

}  // namespace

bool holdsDatabase(const Path& folder) {
    const Path file = folder / databaseName;
    try {
        const auto status = examine(file);
        if (!status)
            return false;
        requireHarmlessJournal(file, *status);
        requireHarmlessLog(file);
        const Connection connection = openConnection(getOpenName(file), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
        std::int64_t budget = stepsToRead;
        distrust(*connection, budget);
        return hasTables(*connection, file);
    } catch (const SqliteError& error) {
        if (error.isLock() || error.isCannotOpen())
            return true;  // opening it will tell
        if (error.isNoDatabase())
            return false;
        raise<MetadataReadFailure>(file.text(), fromUtf8(error.what()));
    }
}

Database::Database(const Path& folder, JobRunner runJob, std::chrono::milliseconds lockLimit)
    : folder_(folder),
      file_(folder / databaseName),
      coreFile_(folder / coreFileName()),
      runJob_(std::move(runJob)),
      lockLimit_(lockLimit) {
    read([](PathTable& table, SeenChanges& seen) { seen = SeenChanges(table.getBatch()); });
}

std::optional<std::u16string> Database::findCoreFileDamage() const {
    if (!exists(coreFile_)) {
        const std::u16string missing = u"it is missing, while \"" + file_.fileName().text() + u"\" beside it is there";
        return examine(file_) ? std::optional(missing) : std::nullopt;
    }
    try {
        if (readMetadataType(coreFile_) == sqliteName)
            return std::nullopt;
        return u"it does not name the type of metadata \"" + sqliteName + u'"';
    } catch (const MetadataReadFailure& error) {
        return getReadProblem(error);
    }
}

std::u16string Database::findForeignInCoreFile() const {
    const store_support::XmlFile xml = store_support::readXmlFile(coreFile_);
    if (!xml.root)
        return {};
    std::u16string foreign = store_support::findForeign(*xml.root, {project::metadata::metadataTypeKey()}, false);
    if (foreign.empty() && !xml.root->getChildNodes().empty())
        foreign = u"<" + xml.root->getChildNodes().front()->getName() + u"> in <" + xml.root->getName() + u'>';
    return foreign.empty() ? xml.foreign : store_support::describeLoss(foreign);
}

bool Database::open() {
    const auto status = examine(file_);
    if (connection_ && status && isOpened(*status)) {
        requireHarmlessJournal(file_, *status);
        return true;
    }
    close();
    settle(folder_);
    if (!exists(coreFile_))
        return false;
    try {
        waitWhileLocked([this] { connect(); });
    } catch (const SqliteError& error) {
        raiseReadFailure(error);
    }
    return true;
}

bool Database::isOpened(const struct stat& status) const {
    const struct stat& opened = held_.getStatus();
    const auto isSameTime = [](const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    return held_.is(status) &&
           (!isImmutable_ || (status.st_size == opened.st_size && isSameTime(status.st_mtim, opened.st_mtim) &&
                              isSameTime(status.st_ctim, opened.st_ctim)));
}

void Database::connect() {
    if (!examine(file_))
        raise<MetadataReadFailure>(file_.text(), u"it is missing, while \"Project.xml\" beside it is there");
    HeldFile file(file_);
    requireHarmlessJournal(file_, file.getStatus());
    requireHarmlessLog(file_);
    const auto tryToOpen = [&](const std::string& name, int flags) {
        Connection connection = openConnection(name, flags | SQLITE_OPEN_NOFOLLOW);
        sqlite3_busy_timeout(connection.get(), static_cast<int>(lockLimit_.count()));
        budget_ = stepsToRead;
        distrust(*connection, budget_);
        execute(*connection, settings);
        const std::int64_t schemaVersion = requireTables(*connection, file_);
        table_.emplace(*connection, file_);
        connection_ = std::move(connection);
        schemaVersion_ = schemaVersion;
    };
    isImmutable_ = false;
    try {
        tryToOpen(getOpenName(file_), SQLITE_OPEN_READWRITE);
    } catch (const SqliteError& error) {
        // A database whose log was on when it was copied to where nothing can be written.
        if (!error.isCannotOpen() || examine(getLogFile(file_)))
            throw;
        isImmutable_ = true;
        tryToOpen(getImmutableUri(file_), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    }
    if (!held_.is(file.getStatus()))
        seen_.restart();
    held_ = std::move(file);
    isLogSettled_ = false;
}

void Database::close() noexcept {
    mark_.reset();
    table_.reset();
    if (connection_ && rollBack(*connection_) && sqlite3_db_readonly(connection_.get(), "main") == 0) {
        // Turns the log off if no other store has the database open, and does nothing otherwise.
        sqlite3_busy_timeout(connection_.get(), 0);
        sqlite3_exec(connection_.get(), "PRAGMA journal_mode = DELETE", nullptr, nullptr, nullptr);
    }
    connection_.reset();
}

void Database::finish() noexcept {
    // Without memory not even rolling back works; closing needs none.
    if (connection_ && (!rollBack(*connection_) || isStuck(*connection_)))
        drop();
}

void Database::drop() noexcept {
    mark_.reset();
    table_.reset();
    connection_.reset();
}

void Database::read(const Read& action) {
    if (open())
        readOpened(action);
}

void Database::readOpened(const Read& action) {
    bool isBegun = false;
    const auto tryToRead = [&] {
        budget_ = stepsToRead + stepsPerByte * held_.getStatus().st_size;
        if (!watch_.getVersion() || !watch_.isUnchanged())
            watch_ = FileWatch(file_, getFileVersion(file_));
        const auto mark = readMark();
        Transaction transaction(*connection_, "BEGIN");
        // The first look takes the lock; nothing after it has to wait.
        waitWhileLocked([&] { look(mark); });
        isBegun = true;
        action(*table_, seen_);
        transaction.commit();
    };
    try {
        try {
            tryToRead();
        } catch (const SqliteError& error) {
            if (isBegun || !error.isStuck())
                throw;
            drop();
            if (open())
                tryToRead();
        }
    } catch (const SqliteError& error) {
        drop();
        raiseReadFailure(error);
    } catch (...) {
        finish();
        throw;
    }
    finish();
}

SeenChanges* Database::findUnchanged() {
    if (!connection_ || !mark_)
        return nullptr;
    const auto isUnchanged = [&] {
        return watch_.getVersion() && watch_.getVersion()->inode == held_.getStatus().st_ino && watch_.isUnchanged() &&
               readMark() == mark_;
    };
    if (!hasLooked_ && !isUnchanged())
        return nullptr;
    hasLooked_ = readings_ > 0;
    return &seen_;
}

std::optional<ChangeMark> Database::readMark() const {
    return connection_ ? readChangeMark(*connection_, isLogOn_) : std::nullopt;
}

void Database::look(const std::optional<ChangeMark>& before) {
    seen_.noteLast(table_->getBatch());
    const bool wasLogOn = std::exchange(isLogOn_, !isImmutable_ && hasLog(*connection_));
    auto mark = readMark();
    // With a log somebody may write meanwhile, without one nobody.
    if (isLogOn_ && (!wasLogOn || mark != before))
        mark.reset();
    if (!mark || mark != mark_) {
        table_->forgetRows();
        ++generation_;
    }
    mark_ = mark;
    // Somebody may have changed the schema meanwhile.
    const std::int64_t schemaVersion = getSchemaVersion(*connection_);
    if (schemaVersion != schemaVersion_)
        schemaVersion_ = requireTables(*connection_, file_);
}

void Database::change(const Edit& edit) {
    while (!changeExisting(edit)) {
        if (create(edit))
            return;
    }
}

bool Database::changeExisting(const Edit& edit) {
    if (!open())
        return false;
    if (wouldChange(edit))
        runJob_(FileJob({file_}, {}, [&] { write(edit); }));
    return true;
}

bool Database::wouldChange(const Edit& edit) {
    bool changes = false;
    readOpened([&](PathTable& table, SeenChanges& seen) {
        PathEdit look(table, seen, PathEdit::Mode::look, 0);
        changes = edit(look);
    });
    return changes;
}

void Database::tidyUp() const {
    for (const Path& left : {getScratchFolder(folder_), folder_ / u".lock"}) {
        if (host::FileUtils::existNoExcept(left)) {
            const FolderLock lock(folder_, lockLimit_);
            return;
        }
    }
}

void Database::write(const Edit& edit) {
    tidyUp();
    if (!open() || !exists(coreFile_))
        raise<MetadataWriteFailure>(file_.text(), u"its project has been removed meanwhile");
    requireMetadataType(folder_, sqliteName);
    requireWritable(file_);
    requireWritable(folder_);
    try {
        waitWhileLocked([&] {
            try {
                tryToWrite(edit);
            } catch (const SqliteError& error) {
                if (!error.isStuck())
                    throw;
                drop();
                tryToWrite(edit);
            }
        });
    } catch (const SqliteError& error) {
        drop();
        if (error.isGivenUp())
            host::Interruption::throwIfRequested();
        raise<MetadataWriteFailure>(file_.text(), getCause(error));
    } catch (...) {
        finish();
        throw;
    }
    finish();
}

void Database::tryToWrite(const Edit& edit) {
    if (!connection_) {
        connect();
    } else if (sqlite3_db_readonly(connection_.get(), "main") != 0) {
        close();
        connect();
    }
    if (!isLogSettled_)
        turnLogOn();
    budget_ = stepsToWrite + stepsPerByte * held_.getStatus().st_size;
    Transaction transaction(*connection_, "BEGIN IMMEDIATE");
    look(std::nullopt);
    mark_.reset();
    const std::int64_t batch = table_->getBatch() + 1;
    PathEdit write(*table_, seen_, PathEdit::Mode::write, batch);
    if (!edit(write))
        return;
    table_->setBatch(batch);
    seen_.reserveOwn();
    transaction.commit();
    seen_.addOwn(batch);
    // The first reader after a batch leaves a mark in the shared memory. It is to be this one, so that whoever only
    // looks from now on touches no file. If that fails, the batch is on disk all the same.
    sqlite3_exec(connection_.get(), "SELECT batch FROM state", nullptr, nullptr, nullptr);
}

void Database::turnLogOn() {
    execute(*connection_, "PRAGMA journal_mode = WAL");
    try {
        table_->getBatch();
    } catch (const SqliteError& error) {
        if (error.isLock())
            throw;
        // There is no shared memory on this file system.
        close();
        turnLogOffAlone(file_);
        connect();
    }
    isLogSettled_ = true;
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
            core.put(metadataTypeKey(), sqliteName);
            project::metadata::writeToFile(core, staged, true);
        }
    };
    try {
        runJob_(FileJob(batch.filesToWrite, {}, [&] {
            const FolderLock lock(folder_, lockLimit_);
            if (exists(coreFile_))
                throw ProjectAppeared();
            if (examine(file_)) {
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
    open();
    return true;
}

void Database::createFile(const Path& staged, const Edit& edit) {
    try {
        // SQLite would not give others the permissions that a new file usually has.
        std::ofstream(staged.accessName()).close();
        const Connection connection = openConnection(getOpenName(staged), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
        execute(*connection, settings);
        // Nobody sees the file before it is complete, and it is flushed then.
        execute(*connection, "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF");
        Transaction transaction(*connection, "BEGIN");
        createTables(*connection);
        PathTable table(*connection, file_);
        const std::int64_t batch = 1;
        PathEdit write(table, seen_, PathEdit::Mode::write, batch);
        edit(write);
        table.setBatch(batch);
        transaction.commit();
        // It stays the same file when it is put into place. If that fails half way, this is what will be found.
        held_ = HeldFile(staged);
        seen_.restart(batch);
    } catch (const SqliteError& error) {
        raise<MetadataWriteFailure>(file_.text(), getCause(error));
    } catch (const MetadataReadFailure& error) {
        raise<MetadataWriteFailure>(file_.text(), stores::sqlite::getCause(error));
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
    if (error.isGivenUp())
        host::Interruption::throwIfRequested();
    raise<MetadataReadFailure>(file_.text(), getCause(error));
}

std::u16string Database::getCause(const SqliteError& error) const {
    // SQLite makes longer names from that of the file, and does not say that one is too long for it.
    constexpr std::size_t roomForEndings = 16;
    const auto longest = static_cast<std::size_t>(sqlite3_vfs_find(nullptr)->mxPathname);
    if (error.isCannotOpen() && file_.accessName().size() + roomForEndings > longest) {
        return u"its name, with the folders, is too long for SQLite, which takes about " +
               fromUtf8(std::to_string(longest)) + u" bytes";
    }
    if (error.isGivenUp())
        return u"to look through it takes longer than that of any undamaged file of its size";
    if (!error.isLock())
        return fromUtf8(error.what());
    return u"another program has held it for more than " + fromUtf8(std::to_string(lockLimit_.count())) + u" ms";
}

}  // namespace stores::sqlite
