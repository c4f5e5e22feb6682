/// Helpers for files and folders of metadata, with one attempt to make writable what is read-only.
///
/// Take these for files and folders of a project's metadata, and the host's `FileSystem` and `FileUtils`, which know no
/// settings, for all others. None keeps any state; all may be called from any thread.
#pragma once

#include <string>
#include <vector>

#include "host/DiagnosticLogger.hpp"
#include "host/Path.hpp"
#include "project/Export.hpp"

namespace project::metadata {

/// Removes the paths that do not exist; the others keep their order.
/// @throws host::FileSystemException if existence cannot be found out; `paths` is then partly compacted
PROJECT_METADATA_EXPORT void purgeNonExistentFiles(std::vector<host::Path>& paths);

/// The folder above `path`, in native form; empty if `path` has no such part. Does not touch the disk.
PROJECT_METADATA_EXPORT host::Path getParentFolder(const host::Path& path);

/// Whether `parent` lies above `child`, both made absolute and normalised first. A path is not its own parent.
PROJECT_METADATA_EXPORT bool isParent(const host::Path& parent, const host::Path& child);

/// Whether `text` ends with `suffix` and is longer than it: false for equal texts.
PROJECT_METADATA_EXPORT bool ends_with(const std::u16string& text, const std::u16string& suffix);

/// `text` without `extension` at its end; `text` itself unless `ends_with(text, extension)`.
PROJECT_METADATA_EXPORT std::u16string stripExtension(const std::u16string& text, const std::u16string& extension);

/// Makes `path` writable if the user's setting "MakeReadOnlyMetadataWritable" in "korvex.project.metadata" is exactly
/// "yes"; otherwise does nothing. Does not test whether it is read-only. A symbolic link stays as it is, and so does
/// what it leads to. Without settings it logs that and returns.
/// @throws FailedToMakeMetadataWritable; errors of the settings
PROJECT_METADATA_EXPORT void handleReadOnlyFile(const host::Path& path);

/// Makes the folder `path` and all missing ones above it; none for the empty path, which is the current folder. If that
/// is denied, the parent folder, or what it leads to if it is a symbolic link, goes through `handleReadOnlyFile` and it
/// is tried once more.
/// @throws MetadataWriteFailure if the first attempt fails for any other reason
/// @throws ReadOnlyMetadataFailure if the second one fails, for whatever reason
/// @throws FailedToMakeMetadataWritable; errors of the settings
PROJECT_METADATA_EXPORT void makeFolder(const host::Path& path);

/// The full names of everything that lies directly in `folder`, in no particular order; none for the empty path.
/// @throws ListChildFilesFailure
PROJECT_METADATA_EXPORT std::vector<host::Path> listChildFiles(const host::Path& folder);

/// Deletes files, and folders with everything below them, in ascending order; those that do not exist are skipped.
/// Where that is denied, the parent folder, if read-only, and the path itself go through `handleReadOnlyFile` and it
/// is tried once more. The permissions of what a symbolic link leads to stay. The first error ends it.
/// @throws MetadataWriteFailure if the first attempt fails for any other reason
/// @throws ReadOnlyMetadataFailure if the second one fails, for whatever reason
/// @throws FailedToMakeMetadataWritable; errors of the settings; host::FileSystemException if it cannot be found out
///         whether the parent folder is read-only
PROJECT_METADATA_EXPORT void deleteFiles(const std::vector<host::Path>& paths);

/// The library's one logger, channel "project::metadata".
PROJECT_METADATA_EXPORT host::DiagnosticLogger& logger();

/// The channel on which stores log, as info, that they wait for another program and for which.
constexpr const char* waitingChannel = "project::metadata::waiting";

}  // namespace project::metadata
