#include "stores/sqlite/FileLocks.hpp"

#include <algorithm>
#include <array>
#include <cerrno>

namespace stores::sqlite {

namespace {

/// The methods of a file, with some in the place of `system`'s.
struct Methods : sqlite3_io_methods {
    const sqlite3_io_methods* system;
    const Methods* stuck;  ///< for when a lock was not given back
};

const Methods& methodsOf(const sqlite3_file* file) {
    return *static_cast<const Methods*>(file->pMethods);
}

/// Whether `reason` says that a lock cannot be had by anybody. Others may be left from calls that did not matter, such
/// as giving a file of SQLite the owner of the database.
bool isFailure(int reason) {
    constexpr std::array failures{ENOLCK, EIO, ENOMEM, ESTALE, ETIMEDOUT, ENOTCONN, EREMOTEIO, ENOSYS, EOPNOTSUPP};
    return std::find(failures.begin(), failures.end(), reason) != failures.end();
}

/// @param failure what to answer if the lock cannot be had
template <class Attempt>
int ask(int failure, const Attempt& attempt) {
    int code = SQLITE_OK;
    do {
        // Two stores of one process hinder each other without the system.
        errno = 0;
        code = attempt();
    } while (code == SQLITE_BUSY && errno == EINTR);
    return code == SQLITE_BUSY && isFailure(errno) ? failure : code;
}

int lockFile(sqlite3_file* file, int level) {
    return ask(SQLITE_IOERR_LOCK, [&] { return methodsOf(file).system->xLock(file, level); });
}

int mapIndex(sqlite3_file* file, int region, int size, int extend, void volatile** memory) {
    return ask(SQLITE_IOERR_SHMLOCK,
               [&] { return methodsOf(file).system->xShmMap(file, region, size, extend, memory); });
}

int lockIndex(sqlite3_file* file, int first, int count, int flags) {
    const Methods& methods = methodsOf(file);
    const int code = ask(SQLITE_IOERR_SHMLOCK, [&] { return methods.system->xShmLock(file, first, count, flags); });
    if (code != SQLITE_OK && (flags & SQLITE_SHM_UNLOCK) != 0)
        file->pMethods = methods.stuck;
    return code;
}

int lockStuckIndex(sqlite3_file* file, int first, int count, int flags) {
    return (flags & SQLITE_SHM_UNLOCK) != 0 ? lockIndex(file, first, count, flags) : SQLITE_PROTOCOL;
}

Methods replaceLocks(const sqlite3_io_methods& system, int (*lockOfIndex)(sqlite3_file*, int, int, int),
                     const Methods* stuck) {
    Methods methods{system, &system, stuck};
    methods.iVersion = 3;  // the one that this is compiled with
    methods.xLock = lockFile;
    methods.xShmMap = mapIndex;
    methods.xShmLock = lockOfIndex;
    return methods;
}

}  // namespace

void waitOnlyForHolders(sqlite3_file& file) {
    if (file.pMethods->iVersion < 3)
        return;
    // All databases have the same, unless the program has brought its own file system for SQLite along.
    static const sqlite3_io_methods* const system = file.pMethods;
    static const Methods stuck = replaceLocks(*system, lockStuckIndex, &stuck);
    static const Methods methods = replaceLocks(*system, lockIndex, &stuck);
    if (file.pMethods == system)
        file.pMethods = &methods;
}

bool isStuck(const sqlite3_file& file) {
    return file.pMethods->xShmLock == lockStuckIndex;
}

}  // namespace stores::sqlite
