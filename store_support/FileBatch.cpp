#include "store_support/FileBatch.hpp"

#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <set>
#include <string>

#include "host/Interruption.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;
using project::metadata::getParentFolder;

namespace {

/// No value if `file` does not exist.
std::optional<mode_t> findMode(const Path& file) {
    const auto status = findStatus(file);
    return status ? std::optional(status->st_mode) : std::nullopt;
}

void requireFeasible(const Path& file) {
    if (file.accessName().size() >= PATH_MAX)
        raiseSystemError(file, ENAMETOOLONG);
    const auto mode = findMode(file);
    if (mode && S_ISDIR(*mode))
        raiseSystemError(file, EISDIR);
    if (mode && S_ISREG(*mode))
        requireWritable(file);
}

void requireFeasibleFolder(const Path& folder) {
    const auto mode = findMode(folder);
    if (mode && !S_ISDIR(*mode))
        raiseSystemError(folder, S_ISLNK(*mode) ? ELOOP : ENOTDIR);
    if (mode)
        requireWritable(folder);
}

/// Everything that the batch will touch must be writable, and every name short enough, before anything is touched.
void requireFeasible(const FileBatch& batch) {
    std::set<Path> folders;
    for (const auto* files : {&batch.filesToWrite, &batch.filesToRemove}) {
        for (const Path& file : *files) {
            requireFeasible(file);
            Path folder = getParentFolder(file);
            while (folder != batch.folder && folders.insert(folder).second)
                folder = getParentFolder(folder);
        }
    }
    for (const Path& folder : folders)
        requireFeasibleFolder(folder);
}

/// Gives the file `staged` the permissions of what it replaces, and to whom that belongs. New files belong to the owner
/// of the folder that they come into, or of the nearest one above that is there.
void takeAttributes(const FileBatch& batch, const Path& file, const std::optional<struct stat>& old,
                    const Path& staged) {
    const bool isRegular = old && S_ISREG(old->st_mode);
    if (isRegular) {
        giveToOwner(staged, *old);
        if (chmod(staged.accessName().c_str(), old->st_mode & 07777) != 0)
            raiseSystemError(file, errno);
    } else if (geteuid() == 0) {
        Path folder = getParentFolder(file);
        auto status = findStatus(folder);
        while (folder != batch.folder && !status)
            status = findStatus(folder = getParentFolder(folder));
        if (status)
            giveToOwner(staged, *status);
    }
}

/// Writes the new files. An error names the file itself, not the staged one. @return the steps that are to follow
Journal stage(const FileBatch& batch) {
    const std::size_t prefixLength = (batch.folder / u"-").accessName().size() - 1;
    Journal journal;
    for (std::size_t i = 0; i < batch.filesToWrite.size(); ++i) {
        host::Interruption::throwIfRequested();
        const Path& file = batch.filesToWrite[i];
        const Path staged = getStagedFile(batch.folder, i);
        writeStaged([&](const Path& place) { batch.write(i, place); }, staged, file);
        const auto old = findStatus(file);
        takeAttributes(batch, file, old, staged);
        journal.push_back({old ? FileStep::replace : FileStep::create, file.accessName().substr(prefixLength)});
    }
    for (const Path& file : batch.filesToRemove)
        journal.push_back({FileStep::remove, file.accessName().substr(prefixLength)});
    return journal;
}

/// Whether the change is a single step, which needs no journal.
bool isOneStep(const FileBatch& batch) {
    return batch.filesToWrite.size() == 1 && batch.filesToRemove.empty() &&
           findMode(getParentFolder(batch.filesToWrite.front()));
}

/// Once the file has its new name nothing is taken back, even if the flush fails: then nobody knows which one is on
/// disk, but it is one of the two.
void carryOutOneStep(const FileBatch& batch) {
    const Path staged = getStagedFile(batch.folder, 0);
    const Path& file = batch.filesToWrite.front();
    // The folders above that of a new project may be new themselves.
    const bool isFirst = !exists(batch.folder / project::metadata::coreFileName());
    flushFile(staged);
    if (std::rename(staged.accessName().c_str(), file.accessName().c_str()) != 0)
        raiseSystemError(file, errno);
    stampFolder(getParentFolder(file));
    if (isFirst)
        flushFileSystem(batch.folder);
    else
        flushFile(getParentFolder(file));
}

/// What cannot be removed now, and what an interrupted batch needs, is left to the next writer.
void removeScratchFolder(const FileBatch& batch) {
    try {
        if (!isInterrupted(batch.folder) && !findJournalDamage(batch.folder))
            removeTree(getScratchFolder(batch.folder));
    } catch (...) {
    }
}

}  // namespace

void commit(const FileBatch& batch, const FolderLock& /*lock*/) {
    requireFeasible(batch);
    try {
        makeFolderOfOwner(getScratchFolder(batch.folder) / u"new");
        const Journal journal = stage(batch);
        if (isOneStep(batch))
            carryOutOneStep(batch);
        else
            carryOut(batch.folder, journal);
    } catch (...) {
        removeScratchFolder(batch);
        throw;
    }
    removeScratchFolder(batch);
}

}  // namespace store_support
