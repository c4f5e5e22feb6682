/// The files of a "fixedPath" store, as they are read. The disk form is written down at the top of PathFiles.cpp.
///
/// One thread at a time may use an object.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "stores/common/FileVersion.hpp"
#include "stores/fixed_path/Rank.hpp"

namespace stores::fixed_path {

extern const std::u16string fixedPathName;

/// What the file of a path says. The root path has neither element nor rank, and its file is the core file.
struct PathFile {
    project::metadata::PathElement element;
    Rank rank;
    std::shared_ptr<const project::metadata::MetadataNode> node;  ///< null for a branch
};

using PathFilePtr = std::shared_ptr<const PathFile>;

/// What is read is kept; a file that has changed on disk since is read again.
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
    /// @throws project::metadata::MetadataReadFailure naming the file, if it is damaged or bears another path's name
    PathFilePtr read(const host::Path& file) const;

    /// What the files of all paths directly in `childFolder` say, in the order of the paths.
    /// @throws as `read`; project::metadata::ListChildFilesFailure
    std::vector<PathFilePtr> readChildren(const host::Path& childFolder) const;

    /// All files of paths in `childFolder` and below, in no particular order; none if it does not exist.
    /// @throws project::metadata::ListChildFilesFailure
    std::vector<host::Path> list(const host::Path& childFolder) const;

private:
    struct CacheEntry {
        FileVersion version;
        PathFilePtr content;
    };

    PathFilePtr parse(const host::Path& file) const;

    host::Path folder_;
    host::Path coreFile_;
    mutable std::map<std::u16string, CacheEntry> cache_;  // by the text of the file's path
};

/// The XML of a file that says `content`, `isRoot` for the core file.
std::unique_ptr<project::metadata::MetadataNode> toXml(const PathFile& content, bool isRoot);

}  // namespace stores::fixed_path
