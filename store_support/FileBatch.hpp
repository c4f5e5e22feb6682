/// Replacing and removing several files of a metadata folder as one change.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "store_support/FolderLock.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// A change to files below `folder`.
struct FileBatch {
    Path folder;                      ///< the metadata folder
    std::vector<Path> filesToWrite;   ///< below `folder`, each once
    std::vector<Path> filesToRemove;  ///< below `folder`, existing files, none of them written too

    /// Writes the new content of `filesToWrite[index]` to the file `staged`.
    std::function<void(std::size_t index, const Path& staged)> write;
};

/// Carries out `batch`: writes all new files into a scratch folder inside the metadata folder, flushes them to disk,
/// and then renames them into place and removes what is to be removed with the folders that it leaves empty, under the
/// protection of a journal (BatchJournal.hpp) if that is more than one step. When it returns, the change is on disk,
/// with the folders above if it is the first. If it fails, or the process or the machine dies on the way, each file has
/// its old content, or each has its new one, after `recover` at the latest.
///
/// A project's core file is not made where the project has one in another of its metadata folders.
///
/// What is read-only is made writable first if the user's settings allow it. A file that replaces another takes
/// over its attributes (FileAttributes.hpp). Nothing is written through a symbolic link.
///
/// @param lock the lock of the folder
/// @throws MetadataWriteFailure, ReadOnlyMetadataFailure, MetadataReadFailure naming the file or folder and the cause;
///         FailedToMakeMetadataWritable; host::InterruptedException while nothing has been touched
void commit(const FileBatch& batch, const FolderLock& lock);

}  // namespace store_support
