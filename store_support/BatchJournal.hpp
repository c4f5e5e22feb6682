/// The journal of a batch of file changes: what makes them one change, whatever happens meanwhile. Its form on disk is
/// written down at the top of BatchJournal.cpp.
///
/// No function keeps state. But for `isInterrupted` and `settle` they are for the holder of the folder's lock.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/Path.hpp"

namespace store_support {

/// Where a batch keeps its files while it is under way; absent otherwise.
host::Path getScratchFolder(const host::Path& folder);

/// Where the new content of the file with the number `index` is written.
host::Path getStagedFile(const host::Path& folder, std::size_t index);

/// What happens to one file of a batch. The values stand in the journal.
enum class FileStep : char { create = 'C', replace = 'R', remove = 'D' };

/// A step for the file `file`, relative to the metadata folder, in bytes.
struct JournalEntry {
    FileStep step;
    std::string file;
};

/// What is to be done, by the number of the file. What is written has been staged.
using Journal = std::vector<JournalEntry>;

/// Carries out `journal` as one change: puts the journal on disk, flushes, carries out the steps, makes the folders
/// that they need and removes those that they leave empty, flushes, and removes the journal. If a step fails, takes
/// back those that were done.
/// @throws project::metadata::MetadataWriteFailure naming the file that was to be changed and the cause
void carryOut(const host::Path& folder, const Journal& journal);

/// Completes, or if that fails takes back, what an interrupted `carryOut` left, and removes the scratch folder.
/// @throws project::metadata::MetadataWriteFailure naming the file at which that fails, or a journal that is none
void recover(const host::Path& folder);

/// Whether a batch is being carried out in `folder`, or was interrupted there: then its files may be partly old and
/// partly new. May be called from any thread.
bool isInterrupted(const host::Path& folder);

/// For a reader: waits until no batch is being carried out in `folder`, and completes one that was interrupted. May be
/// called from any thread.
/// @throws as `FolderLock`; MetadataReadFailure naming the scratch folder, if it stays so and this process may not
///         write there
void settle(const host::Path& folder);

/// Gives `folder` a time of modification that it never had before. The file system's own are only as fine as its clock
/// ticks, and whoever saw the same time twice could have missed a change between.
void stampFolder(const host::Path& folder);

/// Flushes everything that was written to the file system of `folder`.
/// @throws project::metadata::MetadataWriteFailure
void flushFileSystem(const host::Path& folder);

/// Flushes the file or folder `path`.
/// @throws project::metadata::MetadataWriteFailure
void flushFile(const host::Path& path);

}  // namespace store_support
