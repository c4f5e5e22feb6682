#include "store_support/FileBatch.hpp"

#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <set>
#include <utility>

#include "host/Interruption.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using project::metadata::getParentFolder;

namespace {

/// What is at the files of a batch before anything is changed. The folder of a file is looked at only if it is not that
/// of the file before, which it mostly is, and nothing is looked for in a folder that does not exist.
class Places {
public:
    /// @param top the metadata folder
    explicit Places(const Path& top) : top_(top), folder_(top), status_(findStatus(top)) {}

    std::optional<struct stat> find(const Path& file) {
        enterFolder(file);
        return isThere_ ? findStatus(file) : std::nullopt;
    }

    /// The folder of `file`, or the nearest one above it that is there; no value if there is none.
    const std::optional<struct stat>& findFolder(const Path& file) {
        enterFolder(file);
        return status_;
    }

private:
    void enterFolder(const Path& file) {
        Path folder = getParentFolder(file);
        if (folder.text() == folder_.text())
            return;
        status_ = findStatus(folder);
        isThere_ = status_.has_value();
        for (Path above = folder; !status_ && above != top_;)
            status_ = findStatus(above = getParentFolder(above));
        folder_ = std::move(folder);
    }

    const Path& top_;
    Path folder_;
    std::optional<struct stat> status_;
    bool isThere_ = status_.has_value();
};

void requireFeasible(const Path& file, const std::optional<struct stat>& status) {
    if (file.accessName().size() >= PATH_MAX)
        raiseSystemError(file, ENAMETOOLONG);
    if (status && S_ISDIR(status->st_mode))
        raiseSystemError(file, EISDIR);
    if (status && S_ISREG(status->st_mode))
        requireWritable(file);
}

void requireFeasibleFolder(const Path& folder) {
    const auto status = findStatus(folder);
    if (status && !S_ISDIR(status->st_mode))
        raiseSystemError(folder, S_ISLNK(status->st_mode) ? ELOOP : ENOTDIR);
    if (status)
        requireWritable(folder);
}

/// Everything that the batch will touch must be writable, and every name short enough, before anything is touched.
void requireFeasible(const FileBatch& batch) {
    Places places(batch.folder);
    std::set<Path> folders;
    for (const auto* files : {&batch.filesToWrite, &batch.filesToRemove}) {
        Path last;
        for (const Path& file : *files) {
            requireFeasible(file, places.find(file));
            Path folder = getParentFolder(file);
            if (folder.text() == last.text())
                continue;
            last = folder;
            while (folder != batch.folder && folders.insert(folder).second)
                folder = getParentFolder(folder);
        }
    }
    for (const Path& folder : folders)
        requireFeasibleFolder(folder);
}

/// Gives the file `staged` the permissions of what it replaces, and to whom that belongs. New files belong to the owner
/// of the folder that they come into, or of the nearest one above that is there.
void takeAttributes(Places& places, const Path& file, const std::optional<struct stat>& old, const Path& staged) {
    const bool isRegular = old && S_ISREG(old->st_mode);
    if (isRegular) {
        giveToOwner(staged, *old);
        if (chmod(staged.accessName().c_str(), old->st_mode & 07777) != 0)
            raiseSystemError(file, errno);
    } else if (const auto& folder = places.findFolder(file)) {
        giveToOwner(staged, *folder);
    }
}

/// Writes the new files. An error names the file itself, not the staged one. @return the steps that are to follow
Journal stage(const FileBatch& batch) {
    const std::size_t prefixLength = (batch.folder / u"-").accessName().size() - 1;
    Places places(batch.folder);
    Journal journal;
    for (std::size_t i = 0; i < batch.filesToWrite.size(); ++i) {
        host::Interruption::throwIfRequested();
        const Path& file = batch.filesToWrite[i];
        const Path staged = getStagedFile(batch.folder, i);
        writeStaged([&](const Path& place) { batch.write(i, place); }, staged, file);
        const auto old = places.find(file);
        takeAttributes(places, file, old, staged);
        journal.push_back({old ? FileStep::replace : FileStep::create, file.accessName().substr(prefixLength)});
    }
    for (const Path& file : batch.filesToRemove)
        journal.push_back({FileStep::remove, file.accessName().substr(prefixLength)});
    return journal;
}

/// Whether the change is a single step, which needs no journal.
bool isOneStep(const FileBatch& batch) {
    return batch.filesToWrite.size() == 1 && batch.filesToRemove.empty() &&
           exists(getParentFolder(batch.filesToWrite.front()));
}

/// Once the file has its new name nothing is taken back, even if the flush fails: then nobody knows which one is on
/// disk, but it is one of the two.
void carryOutOneStep(const FileBatch& batch) {
    const Path staged = getStagedFile(batch.folder, 0);
    const Path& file = batch.filesToWrite.front();
    // The folders above that of a new project may be new themselves.
    const bool isFirst = !exists(batch.folder / coreFileName());
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
