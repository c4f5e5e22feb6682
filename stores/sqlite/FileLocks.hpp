/// Locks of SQLite that are waited for only if somebody holds them.
///
/// Nearly every reason for which the system refuses a lock is taken by SQLite for somebody else who holds it, and for
/// those on the index of a log every one is: it then asks again for ten seconds. And a lock of that index which
/// the system does not take back, SQLite forgets, and waits for itself.
#pragma once

#include <sqlite3.h>

namespace stores::sqlite {

/// From now on `file` answers SQLITE_BUSY only for a lock that somebody holds, SQLITE_IOERR for one that cannot be had,
/// with `errno` as the system left it, and SQLITE_PROTOCOL at once when it has not got rid of one. What a signal has
/// interrupted is done again.
void waitOnlyForHolders(sqlite3_file& file);

/// Whether `file` has not got rid of a lock.
bool isStuck(const sqlite3_file& file);

}  // namespace stores::sqlite
