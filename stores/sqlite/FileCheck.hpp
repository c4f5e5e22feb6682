/// What is asked of the files of a database before SQLite may open them: they may come from anywhere.
///
/// A database and what belongs to it are regular files. A symbolic link would lead out of the project; a pipe would
/// hold up whoever opens it. A rollback journal may name a file, the "super-journal" of a transaction over several
/// databases, which SQLite removes once it has rolled back; no store makes such transactions. And it may say that
/// the database was larger than this and the journal together can have made it.
///
/// No function keeps state; all may be called from any thread. None opens the database itself: closing it again would
/// give up the locks of all stores of the process.
#pragma once

#include <sys/stat.h>

#include <optional>

#include "store_support/Disk.hpp"
#include "stores/Names.hpp"

namespace stores::sqlite {

/// The status of `file`; no value if it does not exist.
/// @throws MetadataReadFailure naming `file`, if it is no regular file or cannot be looked at
std::optional<struct stat> examine(const Path& file);

/// Keeps a file in existence, whatever becomes of its name, so that no other one gets its inode; and is nothing else to
/// it: it can be neither read nor written by this, and locks do not mind.
class HeldFile {
public:
    HeldFile() = default;

    /// @throws MetadataReadFailure naming `file`, as `examine`, or if it does not exist
    explicit HeldFile(const Path& file);

    /// As it was when the object was made.
    const struct stat& getStatus() const noexcept { return status_; }

    /// Whether `status` is one of this file.
    bool is(const struct stat& status) const noexcept {
        return descriptor_.isOpen() && status.st_ino == status_.st_ino && status.st_dev == status_.st_dev;
    }

private:
    Descriptor descriptor_;
    struct stat status_ {};
};

/// @param database the existing file of the database, which has been examined
/// @throws MetadataReadFailure naming what belongs to `database` and is refused
void requireHarmlessJournal(const Path& database, const struct stat& status);
void requireHarmlessLog(const Path& database);

}  // namespace stores::sqlite
