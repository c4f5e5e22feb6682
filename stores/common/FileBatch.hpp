/// Replacing and removing several files of a metadata folder as one change.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "host/Path.hpp"

namespace stores {

/// A change to files below `folder`.
struct FileBatch {
    host::Path folder;                      ///< the metadata folder; made if it is missing
    std::vector<host::Path> filesToWrite;   ///< below `folder`, each once
    std::vector<host::Path> filesToRemove;  ///< below `folder`, existing files, none of them written too

    /// Writes the new content of `filesToWrite[index]` to the file `staged`, which has the same name in another folder.
    std::function<void(std::size_t index, const host::Path& staged)> write;
};

/// Carries out `batch`: writes all new files into a scratch folder inside the metadata folder, flushes them to disk
/// together, renames them into place, removes what is to be removed with the folders that it leaves empty, and flushes
/// again. Each file has its old or its new content at every moment, also after a crash; and if anything fails, all of
/// them have the old one again (on a file system without hard links, those that had been replaced by then do not).
///
/// What is read-only is made writable first if the user's settings allow it. A file that replaces another keeps its
/// permissions. One thread at a time may change a metadata folder.
///
/// @throws project::metadata::MetadataWriteFailure, ReadOnlyMetadataFailure naming the file or folder and the cause;
///         FailedToMakeMetadataWritable
void commit(const FileBatch& batch);

}  // namespace stores
