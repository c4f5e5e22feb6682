/// What the user of a "fixedPath" store knows of the files of paths: of what he does not know nothing is overwritten.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "host/Path.hpp"
#include "store_support/FileVersion.hpp"

namespace stores::fixed_path {

/// Known is what a file said when this object was made: that it has not changed since, nor been put where it is, its
/// own time and the folders above it tell. Of what came later the versions are known that `add` was called for, each at
/// its place.
///
/// One thing goes unnoticed: a folder that was never asked about before it was put in the place of another, if
/// something has been changed in it since. It looks like one in which others are at work.
///
/// All operations throw `MetadataReadFailure` naming what the system cannot look at now.
class SeenFiles {
public:
    /// @param folder the metadata folder; waits for the next tick of its file system's clock
    explicit SeenFiles(host::Path folder);

    /// Whether `add` has to be called for a version that the user gets to know.
    bool isNews(const store_support::FileVersion& version) const noexcept {
        return version.changed > beginning_ || hasForeignFolders_;
    }

    /// Notes that the user knows what `file` says in that version. What it is before it is put into place is the same.
    void add(const host::Path& file, const store_support::FileVersion& version);

    /// Takes back `add`, for a version that is not there any more.
    void remove(const host::Path& file, const store_support::FileVersion& version);

    /// Whether the user knows what `file` says, of which `version` is there now. The folders above it are looked at,
    /// once until `lookAgain` is called.
    bool isKnown(const host::Path& file, const store_support::FileVersion& version);

    void lookAgain() noexcept { looks_.clear(); }

private:
    struct Key {
        std::size_t file;  // the hash of its text
        store_support::FileVersion version;

        friend bool operator==(const Key& a, const Key& b) { return a.file == b.file && a.version == b.version; }
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const noexcept {
            return key.file ^ store_support::FileVersionHash()(key.version);
        }
    };

    static Key makeKey(const host::Path& file, const store_support::FileVersion& version);

    /// Whether `folder` is the one that was there in the beginning, as far as can be told.
    bool isOriginal(const host::Path& folder);
    bool looksOriginal(const host::Path& folder);

    host::Path folder_;
    std::optional<std::uint64_t> inode_;  // of the metadata folder in the beginning
    std::int64_t beginning_;  // by the clock of the file system: what has not changed later was there before
    std::unordered_set<Key, KeyHash> known_;
    std::unordered_map<std::u16string, std::uint64_t> inodes_;  // of folders that were found to be original
    std::unordered_map<std::u16string, bool> looks_;            // what `isOriginal` has answered
    bool hasForeignFolders_ = false;                            // whether that was ever no
};

}  // namespace stores::fixed_path
