/// The lock of a metadata folder, and what a writer has there while it is at work: the file ".lock", locked with
/// flock(2), and the scratch folder ".pending", which holds a "journal" from the moment when the change is decided.
///
/// One thread at a time may use an object.
#pragma once

#include "host/Path.hpp"

namespace operations {

class MetadataLock {
public:
    static host::Path lockFile(const host::Path& folder) { return folder / u".lock"; }
    static host::Path scratchFolder(const host::Path& folder) { return folder / u".pending"; }

    /// Whether a program holds the lock of `folder` now.
    static bool isHeld(const host::Path& folder);

    /// Takes the lock of `folder`, and removes it at the end.
    /// @throws OperationError if a program holds it, or it cannot be made
    explicit MetadataLock(const host::Path& folder);
    ~MetadataLock();

    /// Says that the folder has been renamed to `folder`.
    void follow(const host::Path& folder) { folder_ = folder; }

    MetadataLock(const MetadataLock&) = delete;
    MetadataLock& operator=(const MetadataLock&) = delete;

    /// Removes the scratch folder of a change that never was decided. @return whether there was one
    /// @throws host::FileSystemException
    bool removeScratch() const;

private:
    host::Path folder_;
    int descriptor_ = -1;
};

}  // namespace operations
