/// Noticing at little cost, before each answer, that a file has not changed since it was looked at.
#pragma once

#include <cstdint>
#include <optional>

#include "store_support/Disk.hpp"
#include "store_support/FileVersion.hpp"

namespace store_support {

/// Holds on to a file whatever becomes of its name, and asks for its status by that: there it shows at once that a file
/// is changed, replaced, removed or renamed, with the file systems of Linux for local disks. With others the name is
/// looked up each time. That a folder above has been renamed is noticed within a millisecond.
///
/// It neither reads nor writes the file, and locks do not mind it. One thread at a time may use an object.
class FileWatch {
public:
    FileWatch() = default;

    /// Watches `file`, which has the version `version`, or does not exist if there is none. What cannot be held is
    /// looked up each time.
    FileWatch(Path file, const std::optional<FileVersion>& version);

    /// The version that it had when this began to watch.
    const std::optional<FileVersion>& getVersion() const noexcept { return version_; }

    /// Whether the file still is the same in that version.
    /// @throws MetadataReadFailure if that cannot be found out
    bool isUnchanged();

private:
    Path file_;
    std::optional<FileVersion> version_;
    Descriptor descriptor_;      // not open if the file is not held
    std::int64_t lookedUp_ = 0;  // when its name led to it last, in nanoseconds of the monotonic clock
};

}  // namespace store_support
