/// The journal of a batch of file changes: what makes them one change, whatever happens meanwhile. Its form on disk is
/// written down at the top of BatchJournal.cpp.
///
/// No function keeps state. But for those of which it is said, they are for the holder of the folder's lock.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "store_support/Library.hpp"

namespace store_support {

/// Where a batch keeps its files while it is under way; absent otherwise.
Path getScratchFolder(const Path& folder);

/// Where the new content of the file with the number `index` is written.
Path getStagedFile(const Path& folder, std::size_t index);

/// Makes the scratch folder, and in it the one for new content, for all who may use `folder`.
/// @throws project::metadata::MetadataWriteFailure
void makeStagingFolder(const host::Path& folder);

/// What happens to one file of a batch. The values stand in the journal.
enum class FileStep : char { create = 'C', replace = 'R', remove = 'D' };

/// A step for the file `file`, relative to the metadata folder, in bytes.
struct JournalEntry {
    FileStep step;
    std::string file;
};

/// What is to be done, by the number of the file. What is written has been staged.
using Journal = std::vector<JournalEntry>;

/// Carries out `journal` as one change: flushes what was staged, puts the journal on disk, carries out the steps, makes
/// the folders that they need, flushes, removes the folders that they leave empty, and then the journal.
///
/// Failing is as good as dying: whatever fails, what is there is the old content, or is made the old or the new one as
/// a whole by the next `recover`. A step that fails is taken back at once, with those before it. After a flush that
/// failed nobody knows what is on disk, so nothing is taken back any more.
/// @throws MetadataWriteFailure, MetadataReadFailure naming the file at which it failed and the cause
void carryOut(const Path& folder, const Journal& journal);

/// Completes, or if that fails takes back, what an interrupted `carryOut` left, and removes the scratch folder.
/// @throws MetadataWriteFailure, MetadataReadFailure naming the file at which that fails, or a journal that is none
void recover(const Path& folder);

/// Whether a batch is being carried out in `folder`, or was interrupted there and can be completed: then its files may
/// be partly old and partly new. So they may be where this process must not look into the scratch folder. May be called
/// from any thread.
/// @throws project::metadata::MetadataReadFailure if that cannot be found out
bool isInterrupted(const host::Path& folder);

/// The journal in `folder` if it is damaged, with what is wrong with it: nobody can tell what the batch was about, and
/// its files may be partly old and partly new. What is there can be read all the same. May be called from any thread.
/// @throws as `isInterrupted`
std::optional<MetadataDamage> findJournalDamage(const Path& folder);

/// For a repair: takes a change whose journal is damaged out of the way of those to come. What the scratch folder
/// holds, which may be the only copies of files, stays in a folder of another name beside it. May be
/// called from any thread.
/// @return that folder; no value if no journal is damaged
/// @throws as `FolderLock`; MetadataReadFailure
std::optional<Path> setAsideDamagedChange(const Path& folder);

/// For a reader: waits until no batch is being carried out in `folder`, and completes one that was interrupted. A
/// damaged journal is let be. May be called from any thread.
/// @throws MetadataReadFailure naming what is in the way: the lock that somebody else holds, a file
///         that cannot be put into place, or the scratch folder if this process may not write there
void settle(const Path& folder);

/// Gives `folder` a time of modification that it never had before. The file system's own are only as fine as its clock
/// ticks, and whoever saw the same time twice could have missed a change between.
void stampFolder(const Path& folder);

}  // namespace store_support
