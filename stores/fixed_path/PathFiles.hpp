/// The files of a "fixedPath" store, as they are read. The disk form is written down at the top of PathFiles.cpp.
///
/// One thread at a time may use an object.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "store_support/FileVersion.hpp"
#include "store_support/XmlFile.hpp"
#include "stores/fixed_path/Rank.hpp"

namespace stores::fixed_path {

extern const std::u16string& fixedPathName;

/// What the file of a path says. The root path has neither element nor rank, and its file is the core file. A damaged
/// file has the element that its name tells, if it does, and what else could be read.
struct PathFile {
    project::metadata::PathElement element{{}, {}};
    Rank rank;                                                    ///< empty if it is unknown
    std::shared_ptr<const project::metadata::MetadataNode> node;  ///< null for a branch
    std::u16string damage;                                        ///< what is wrong with the file, in words
    store_support::FileVersion version{};                         ///< the one that says so
};

using PathFilePtr = std::shared_ptr<const PathFile>;

/// What is read is kept; a file that has changed on disk since is read again. Damage is logged when it is read.
///
/// All operations throw `MetadataReadFailure` and `ListChildFilesFailure` naming what the system cannot look at now.
class PathFiles {
public:
    /// @param folder the metadata folder
    explicit PathFiles(host::Path folder);

    const host::Path& getFolder() const noexcept { return folder_; }

    /// The file of `path`.
    host::Path getFile(const project::metadata::MetadataPath& path) const;

    /// The folder that holds the files of the children of `path`.
    host::Path getChildFolder(const project::metadata::MetadataPath& path) const;

    /// What the file `file` of a path says; null if it does not exist.
    PathFilePtr read(const host::Path& file) const;

    /// What the files of all paths directly in `childFolder` say, in the order of the paths; those of which no rank is
    /// known come last. A path whose file is missing while there are paths below it counts as damaged.
    /// @throws project::metadata::ListChildFilesFailure
    std::vector<PathFilePtr> readChildren(const host::Path& childFolder) const;

    /// The last rank in `childFolder`; empty if there is none.
    Rank findLastRank(const host::Path& childFolder) const;

    /// Notes that `rank` is the last one in `childFolder` now.
    void noteLastRank(const host::Path& childFolder, const Rank& rank);

    /// Whether there are paths below the one with the folder `childFolder`.
    bool hasChildren(const host::Path& childFolder) const;

    /// All files of paths in `childFolder` and below, in no particular order; none if it does not exist.
    std::vector<host::Path> list(const host::Path& childFolder) const;

    /// Reads all files. @return what is damaged or cannot be read, in the order of the files, a damaged journal too
    std::vector<project::metadata::MetadataDamage> findDamage() const;

    /// Notes that the user of this store knows what the version `version` of a file says.
    void markSeen(const store_support::FileVersion& version);

    /// Takes back `markSeen`, for a version that is not there any more.
    void forget(const store_support::FileVersion& version);

    /// Whether a file says what it said when this object was made, or what `markSeen` was called for. New
    /// permissions or a further name of the file make no difference.
    /// @param version the one that the file `file` has now
    bool isSeen(const host::Path& file, const store_support::FileVersion& version) const;

    /// Whether nobody but this store has put files into `folder`, or taken any away, since this object was made.
    bool isOurs(const host::Path& folder) const;

    /// Notes that it was this store that has changed `folder` last.
    void markOurs(const host::Path& folder);

private:
    struct LastRank {
        store_support::FileVersion version;  // of the folder
        Rank rank;
    };

    /// The folder of the children of `path`.
    const host::Path& walk(const project::metadata::MetadataPath& path) const;

    PathFile interpret(const host::Path& file, const store_support::XmlFile& xml) const;

    host::Path folder_;
    host::Path coreFile_;
    mutable std::vector<std::pair<project::metadata::PathElement, host::Path>> walk_;  // the last path, with folders
    std::int64_t beginning_;  // by the clock of the file system: what has not changed later was there before
    mutable std::unordered_map<std::u16string, PathFilePtr> cache_;   // by the text of the file's path
    mutable std::unordered_map<std::u16string, LastRank> lastRanks_;  // by the text of the folder's path
    std::unordered_set<store_support::FileVersion, store_support::FileVersionHash> seen_;  // the user knows these
    std::unordered_map<std::u16string, std::int64_t> ours_;  // by the folder's text: when this store changed it last
};

/// Whether `root` is the root of a "fixedPath" store's core file.
bool isCoreFile(const project::metadata::MetadataNode& root);

/// Whether `root` is the root of a core file or of another path's file, damaged or not.
bool isPathFile(const project::metadata::MetadataNode& root);

/// What `file` with the root `xml` says, `isRoot` for the core file. Its name is not looked at.
/// @throws project::metadata::MetadataReadFailure naming `file`, if it does not name a path, or not its one node
PathFile fromXml(const project::metadata::MetadataNode& xml, bool isRoot, const host::Path& file);

/// The XML of a file that says `content`, `isRoot` for the core file.
std::unique_ptr<project::metadata::MetadataNode> toXml(const PathFile& content, bool isRoot);

}  // namespace stores::fixed_path
