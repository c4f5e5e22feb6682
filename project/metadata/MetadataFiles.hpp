/// What only a store knows about its files, for tools that work on files: which ones are the store's, and what one of
/// them holds by itself. All interfaces are optional.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace project::metadata {

/// A file in a metadata folder that a store has made. A value type.
struct StoreFile {
    host::Path file;
    bool hasContent;  ///< false for what serves only while programs are at work, and may come and go
};

/// What a `MetadataManager` may implement besides. Ask for it with a `dynamic_cast`.
class PROJECT_METADATA_EXPORT StoreFileLister {
public:
    virtual ~StoreFileLister() = default;

    /// The files that the store has in its metadata folder now, in the order of their names: the core file, and damaged
    /// ones too. Whatever else lies there is somebody else's.
    /// @throws project::metadata::ListChildFilesFailure, MetadataReadFailure if the metadata cannot be looked through
    virtual std::vector<StoreFile> listFiles() const = 0;

    /// The file that has the node at `path`, or would have it; neither need exist. Empty if no file of the folder does.
    virtual host::Path getNodeFile(const MetadataPath& path) const = 0;

protected:
    StoreFileLister() = default;
    StoreFileLister(const StoreFileLister&) = default;
    StoreFileLister& operator=(const StoreFileLister&) = default;
};

/// That of a store in which each path has a file of its own, that alone says its node and its place among its siblings,
/// and a folder in which all is that is below it: who notices that a file has changed need not read all again. The
/// folder of the root path is the metadata folder.
class PROJECT_METADATA_EXPORT PathFileLister : public StoreFileLister {
public:
    /// The folder with the files of the children of `path`, which need not exist.
    virtual host::Path getChildFolder(const MetadataPath& path) const = 0;

    /// Whether there is damage in `entry`, a file or folder, or in what lies in that, other than
    /// `MetadataDamage::readsAsBranch`. False for what is not the store's.
    /// @throws project::metadata::ListChildFilesFailure, MetadataReadFailure if it cannot be looked through
    virtual bool hasLossIn(const host::Path& entry) const = 0;

    /// What tells the children of `path`, as they are on disk now, from all others: another text if any of them has
    /// come or gone, or has another node or place, or if there is other damage. It says nothing of what is below them.
    /// Of their files only the status is asked for.
    /// @return empty if a file vanishes meanwhile, or the system does not tell
    /// @throws project::metadata::ListChildFilesFailure, MetadataReadFailure if they cannot be looked through
    virtual std::string getFingerprint(const MetadataPath& path) const = 0;

    /// The fingerprint of what was read of the children of `path` in the `RepeatableRead` that is under way; another
    /// one than `getFingerprint` answers if that were not all.
    /// @return empty if they were not read, if there is damage in them, or if they have changed since the store was
    ///         opened: what changes again within a tick of the file system's clock may look as before
    virtual std::string getFingerprintOfRead(const MetadataPath& path) const = 0;

protected:
    PathFileLister() = default;
    PathFileLister(const PathFileLister&) = default;
    PathFileLister& operator=(const PathFileLister&) = default;
};

/// A path with everything below it, as one file holds it. A value type.
struct PathTree {
    PathElement step{{}, {}};                  ///< the path's last step; empty texts for the root path
    std::shared_ptr<const MetadataNode> node;  ///< null for a branch
    /// Where the path stands among its siblings, in a text of the store's own; empty if their order in `children` says
    /// it. If two people have placed a path differently, either text will do, as long as all take the same.
    std::u16string place;
    std::vector<PathTree> children;
};

/// Takes a path with everything below it: each path before what is below it, siblings in their order.
class PROJECT_METADATA_EXPORT PathSink {
public:
    virtual ~PathSink() = default;

    /// Begins the first path, or the next child of the one that was begun last and has not ended.
    /// @param step the path's last step; empty texts for the root path
    /// @param node null for a branch; nobody changes it any more
    virtual void begin(const PathElement& step, const std::shared_ptr<const MetadataNode>& node) = 0;

    /// Ends the path that was begun last and has not ended.
    virtual void end() = 0;

protected:
    PathSink() = default;
    PathSink(const PathSink&) = default;
    PathSink& operator=(const PathSink&) = default;
};

/// Tells a path with everything below it. What it throws passes, and it lets pass what the sink throws.
using PathTeller = std::function<void(PathSink& sink)>;

/// Tells `tree`, but for the places of its paths: their order says those.
PROJECT_METADATA_EXPORT void tellPaths(const PathTree& tree, PathSink& sink);

/// What `tell` tells, in memory.
PROJECT_METADATA_EXPORT PathTree collectPaths(const PathTeller& tell);

/// What a file holds by itself. A value type.
struct FileContent {
    bool isRoot;  ///< whether `tree` is that of the root path; otherwise only the path's last step is known
    PathTree tree;
};

/// What a `MetadataManagerFactory` may implement besides: reading and writing single files of its stores without the
/// project around them, as version control hands them over. Ask for it with a `dynamic_cast`. May be used by several
/// threads at once.
class PROJECT_METADATA_EXPORT MetadataFileFormat {
public:
    virtual ~MetadataFileFormat() = default;

    /// The names of such files, relative to the metadata folder, as patterns of gitattributes(5), such as "**/*.xml".
    virtual std::vector<std::u16string> getFilePatterns() const = 0;

    /// @param file a regular file or a link to one, whatever its name
    /// @return what it holds; no value if it is none of this kind of store's
    /// @throws project::metadata::MetadataReadFailure if it is one, and damaged or with anything in it that `writeFile`
    ///         would not write again; or if it cannot be read at all
    virtual std::optional<FileContent> readFile(const host::Path& file) const = 0;

    /// Writes `content`, which `readFile` answered or which was merged of such, to `file`, in place of what is there.
    /// @throws project::metadata::MetadataWriteFailure, also for content that could not be read back; and as
    ///         `writeToFile`
    virtual void writeFile(const FileContent& content, const host::Path& file) const = 0;

    /// As that, for content that nobody need have in memory at once. Without an implementation of the store's own, it
    /// is collected for `writeFile`.
    /// @param tell tells the root path with everything below it; may be called again, after a failure to write
    /// @throws as `writeFile`; whatever `tell` throws. `file` is then as it was.
    virtual void writePaths(const PathTeller& tell, const host::Path& file) const;

protected:
    MetadataFileFormat() = default;
    MetadataFileFormat(const MetadataFileFormat&) = default;
    MetadataFileFormat& operator=(const MetadataFileFormat&) = default;
};

}  // namespace project::metadata
