/// The files of a "fixedPath" store, as they are read. The disk form is written down at the top of PathFiles.cpp.
///
/// One thread at a time may use an object.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileVersion.hpp"
#include "store_support/XmlFile.hpp"
#include "stores/fixed_path/Listings.hpp"
#include "stores/fixed_path/PathFile.hpp"
#include "stores/fixed_path/PathFileCache.hpp"
#include "stores/fixed_path/Rank.hpp"
#include "stores/fixed_path/SeenFiles.hpp"

namespace stores::fixed_path {

/// What is to be found out of a file: everything, or all but its node, which is left out where that saves reading.
enum class Extent { whole, place };

/// Whether `content` says what is to be found out.
bool isEnough(const PathFilePtr& content, Extent extent);

/// What is read is kept, up to a limit; a file that has changed on disk since is read again. Damage is logged when it
/// is read.
///
/// All operations throw `MetadataReadFailure` and `ListChildFilesFailure` naming what the system cannot look at now.
class PathFiles {
public:
    /// Where a path is kept, with the names that the system knows.
    struct Place {
        project::metadata::PathElement element;
        host::Path file;
        std::string fileName;
        host::Path folder;  ///< of the children
        std::string folderName;
    };

    /// @param folder the metadata folder
    explicit PathFiles(host::Path folder);

    const host::Path& getFolder() const noexcept { return folder_; }

    /// Where `path` is kept; the root path has its own element "". Valid until the next path is asked about, by
    /// `recall` too.
    const Place& locate(const project::metadata::MetadataPath& path) const;

    /// Waits for a change that is being carried out, and completes one that was interrupted, as `settle` does.
    void settle() const;

    /// As `store_support::isInterrupted` for the metadata folder.
    bool isInterrupted() const;

    /// What the file `file` of a path says; null if it does not exist.
    PathFilePtr read(const host::Path& file, Extent extent) const;

    /// The same for the file of a path.
    PathFilePtr read(const Place& place, Extent extent) const { return read(place.file, place.fileName, extent); }

    /// As `read`, for changes, which come upon many files and ask for each node once: none is kept that was not before.
    PathFilePtr readForChange(const host::Path& file, Extent extent) const;

    /// All paths directly in `childFolder`, in their order; those of which no rank is known come last. A path whose
    /// file is missing while there are paths below it counts as damaged. Nodes may be left out.
    /// @throws project::metadata::ListChildFilesFailure
    Listing readChildren(const host::Path& childFolder) const;

    /// Between these two, what `remember` was told is known.
    void beginReading() noexcept { ++readings_; }
    void endReading() noexcept;

    /// Notes what is in `childFolder`, during a reading.
    void remember(const host::Path& childFolder, const Listing& listing) const;

    /// What is known of `path` without a look at the disk, since the reading began; no value if nothing is. Its node
    /// may be left out.
    std::optional<Child> recall(const project::metadata::MetadataPath& path) const;

    /// The same for what `readChildren` finds, in no particular order.
    std::optional<Listing> recallListing(const host::Path& childFolder) const {
        return listings_.find(childFolder, cache_);
    }

    /// The same in the order of `readChildren`.
    std::optional<Listing> recallChildren(const host::Path& childFolder) const;

    /// Lets go of what `remember` was told, since it is going to change.
    void lookAgain() noexcept;

    /// The last rank in `childFolder`; empty if there is none.
    Rank findLastRank(const host::Path& childFolder) const;

    /// Notes that `rank` is the last one in `childFolder` now.
    void noteLastRank(const host::Path& childFolder, const Rank& rank);

    /// Whether there are paths below the one with the folder `childFolder`.
    bool hasChildren(const host::Path& childFolder) const;

    /// Calls `visit` with all files of paths in `childFolder` and below, in no particular order, until it returns
    /// false. @return whether it never did
    bool visitFiles(const host::Path& childFolder, const std::function<bool(const host::Path& file)>& visit) const;

    /// All files of paths in `childFolder` and below, in no particular order; none if it does not exist.
    std::vector<host::Path> list(const host::Path& childFolder) const;

    /// Reads all files that are not known. @return what is damaged or cannot be read, in the order of the files, a
    /// damaged journal too
    std::vector<project::metadata::MetadataDamage> findDamage() const;

    /// Whether `findDamage` would name anything but branches in the file or folder `entry`, or below.
    bool hasLossIn(const host::Path& entry) const;

    /// Lets go of what was read in that version.
    void drop(const store_support::FileVersion& version) { cache_.erase(version.inode); }

    /// Notes what this store has written into `file`, where it has the version `content.version`.
    void noteWritten(const host::Path& file, PathFile content);

    /// What the user of this store knows.
    SeenFiles& seen() noexcept { return seen_; }

private:
    struct LastRank {
        store_support::FileVersion version;  // of the folder
        Rank rank;
    };

    /// Makes `walk_` the way to the first `depth` steps of `path`.
    void walk(const project::metadata::MetadataPath& path, std::size_t depth) const;

    PathFilePtr read(const host::Path& file, const std::string& name, Extent extent) const;

    /// What the file `file` says, of which its folder, open as `folder`, says `entry`. Its node may be left out.
    PathFilePtr readEntry(const host::Path& file, const store_support::Descriptor& folder,
                          const store_support::FolderEntry& entry) const;

    /// Whether there is the folder of a change under way, which mostly there is not.
    bool hasScratchFolder() const;

    /// What `file` says, which was found to be `xml` and is not known yet; null if it does not exist any more.
    PathFilePtr note(const host::Path& file, const store_support::XmlFile& xml) const;

    /// What is in a folder.
    struct Folder {
        Listing listing;                         // what has a file, in no particular order
        std::map<std::u16string, bool> folders;  // the folders' names, and whether there is a file for each
        bool hasFiles = false;
    };
    using Damages = std::map<host::Path, project::metadata::MetadataDamage>;

    /// @param damages takes what is damaged, and what the system cannot read now; null if that is to be an error
    Folder readFolder(const host::Path& childFolder, Damages* damages) const;

    /// Adds what is damaged in `childFolder` and below. @return whether there are paths in it
    bool findDamage(const host::Path& childFolder, Damages& damages) const;

    /// The path that the file or folder `entry` is of, or the nearest one above it that can be told.
    project::metadata::MetadataPath findPath(const host::Path& entry) const;

    PathFile interpret(const host::Path& file, const store_support::XmlFile& xml) const;

    host::Path folder_;
    host::Path coreFile_;
    host::Path scratchFolder_;
    std::string scratchName_;
    mutable std::vector<Place> walk_;  // the last path, with those above it, from the root path on
    mutable PathFileCache cache_;
    mutable Listings listings_;
    int readings_ = 0;                                                // how many have begun and not ended
    mutable std::unordered_map<std::u16string, LastRank> lastRanks_;  // by the text of the folder's path
    mutable SeenFiles seen_;
};

}  // namespace stores::fixed_path
