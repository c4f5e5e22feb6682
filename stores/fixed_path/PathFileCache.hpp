/// What the files of a "fixedPath" store said when they were read or written last.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "host/Path.hpp"
#include "store_support/FileVersion.hpp"
#include "stores/fixed_path/PathFile.hpp"

namespace stores::fixed_path {

/// What was read or written last. It forgets what was not asked for since, so as to take some 400 MB at most; and
/// another 1.5 GB of what a reading came by and has not asked for yet, which it would have to read again.
///
/// Files are told apart by their inodes: that takes less memory than their names.
class PathFileCache {
public:
    /// What the file `file` says in the version `version`, null if that is not known.
    PathFilePtr find(const host::Path& file, const store_support::FileVersion& version);

    /// What the file with that inode says, if it was last changed at `changed`, as the system says it; null if that is
    /// not known.
    PathFilePtr find(std::uint64_t inode, std::int64_t changed);

    /// What `file` with that inode said last; null if that is not known.
    PathFilePtr findAnyVersion(const host::Path& file, std::uint64_t inode) const;

    /// Whether it is known what a file with that inode said, under any name.
    bool hasInode(std::uint64_t inode) const {
        return young_.count(inode) != 0 || old_.count(inode) != 0 || ahead_.count(inode) != 0;
    }

    void insert(const host::Path& file, PathFilePtr content);

    /// As `insert`, for what will probably be asked for before `endReading`, though others may come between.
    void insertAhead(const host::Path& file, PathFilePtr content);

    void erase(std::uint64_t inode);

    /// Nothing is waited for any more.
    void endReading() noexcept;

private:
    struct Entry {
        PathFilePtr content;
        std::size_t fileHash;  // of where it is
    };
    using Entries = std::unordered_map<std::uint64_t, Entry>;  // by the inode

    /// The entry of a file, young from now on; null if there is none.
    const Entry* touch(std::uint64_t inode);

    /// Makes one of `entries` young.
    const Entry* rejuvenate(Entries& entries, Entries::iterator entry);

    void makeRoom(const PathFile& content);

    // When there are enough of the young ones, they become the old ones, and the old ones go. An old one that is asked
    // for becomes young again.
    Entries young_;
    Entries old_;
    std::size_t youngBytes_ = 0;
    Entries ahead_;  // what was not asked for since `insertAhead`
    std::size_t aheadBytes_ = 0;
};

}  // namespace stores::fixed_path
