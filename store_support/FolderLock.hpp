/// One writer at a time in a metadata folder.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "store_support/Disk.hpp"

namespace store_support {

/// The file that is locked in the metadata folder `folder`. May be called from any thread.
Path getLockFile(const Path& folder);

/// Whether anybody holds the lock of `folder` now. May be called from any thread.
/// @throws MetadataReadFailure if that cannot be found out
bool isLockHeld(const Path& folder);

/// How long somebody waits for somebody else.
constexpr std::chrono::milliseconds lockLimit = std::chrono::seconds(10);

/// Holds the file ".lock" in a metadata folder, locked with flock(2), and removes it again; a lock file that a killed
/// process left behind holds nobody up, and neither does one that belongs to somebody else. A folder that is renamed
/// meanwhile keeps its lock. The lock keeps apart processes, and stores within one process.
///
/// Waiting is fair: whoever wants the lock first takes a flock(2) of the metadata folder itself, and keeps that until
/// he has the lock. So the holder cannot take it again past somebody who waits already, and of those who come to wait
/// all have the same chance to be next.
///
/// One thread at a time may use an object.
class FolderLock {
public:
    /// Waits for the lock, then cleans up after a writer that was interrupted: its change is completed if it had been
    /// decided, otherwise forgotten.
    ///
    /// @param folder the metadata folder; made if it is missing, with those above it, and made writable if the user's
    ///        settings allow it. What was made is removed with the lock if nothing came into it.
    /// @param limit how long to wait
    /// @throws MetadataWriteFailure naming the lock file, if the lock cannot be had within `limit`,
    ///         with the process that holds it if the system tells, or if it cannot be made; ReadOnlyMetadataFailure,
    ///         FailedToMakeMetadataWritable; as `recover`
    explicit FolderLock(const Path& folder, std::chrono::milliseconds limit = lockLimit)
        : FolderLock(folder, limit, true) {}

    /// As that, but leaves an interrupted change as it is, damaged or not.
    static FolderLock withoutCleaningUp(const Path& folder) { return {folder, lockLimit, false}; }

    ~FolderLock() { release(); }

    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// Lets others in before the end of the object.
    void release() noexcept;

private:
    FolderLock(const Path& folder, std::chrono::milliseconds limit, bool cleansUp);

    void makeAndLock(const Path& folder, std::chrono::milliseconds limit);

    std::vector<std::string> made_;  ///< folders, from below
    Descriptor folder_;
    Descriptor lock_;
};

}  // namespace store_support
