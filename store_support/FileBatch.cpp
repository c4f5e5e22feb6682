#include "store_support/FileBatch.hpp"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <set>
#include <utility>

#include "host/Interruption.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileAttributes.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using project::metadata::getParentFolder;

namespace {

/// Whether `file` is in `folder` and not deeper. Asked for every file, this makes no texts.
bool isDirectlyIn(const Path& folder, const Path& file) {
    const std::u16string& above = folder.text();
    const std::u16string& text = file.text();
    return text.size() > above.size() && text[above.size()] == u'/' &&
           std::equal(above.begin(), above.end(), text.begin()) && text.find(u'/', above.size() + 1) == text.npos;
}

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
        if (isDirectlyIn(folder_, file))
            return;
        Path folder = getParentFolder(file);
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

/// Gives the new files of a batch to the owners of their folders. All are made in one folder by one process, so whose
/// they are until then has to be looked up only once.
class NewFiles {
public:
    void giveToOwner(const Path& staged, const struct stat& folder) {
        isKnown_ = isKnown_ || lstat(staged.accessName().c_str(), &made_) == 0;
        if (!isKnown_ || made_.st_uid != folder.st_uid || made_.st_gid != folder.st_gid)
            store_support::giveToOwner(staged, folder);
    }

private:
    struct stat made_ {};  // what the first one was
    bool isKnown_ = false;
};

void requireFeasible(const Path& file, const std::optional<struct stat>& status) {
    constexpr std::size_t mostBytesOfUnit = 3;
    if (mostBytesOfUnit * file.text().size() >= PATH_MAX && file.accessName().size() >= PATH_MAX)
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

/// The root folder of the project whose metadata folder is `folder`; no value if that has no name of one.
std::optional<Path> findRoot(const Path& folder) {
    for (const std::u16string& name : project::metadata::getSupportedRoots()) {
        Path root = folder;
        for (Path rest(name); !rest.empty(); rest = rest.parentPath())
            root = root.parentPath();
        if (root / name == folder)
            return root;
    }
    return std::nullopt;
}

/// A core file that is made hides all metadata in the folders after its own, and is hidden by those in one before. They
/// may have come, or have been renamed, since the store was opened.
void requireNoOtherMetadata(const Path& folder) {
    const auto root = findRoot(folder);
    const auto other = root ? project::metadata::ProjectMetadataLocation(*root).locateCoreFile() : std::nullopt;
    if (other) {
        project::metadata::raise<project::metadata::MetadataWriteFailure>(
            (folder / project::metadata::coreFileName()).text(),
            u"the project has its metadata in \"" + getParentFolder(*other).text() +
                u"\" by now, and gets no second; open it again first");
    }
}

/// Everything that the batch will touch must be writable, and every name short enough, before anything is touched.
void requireFeasible(const FileBatch& batch) {
    Places places(batch.folder);
    const Path coreFile = batch.folder / project::metadata::coreFileName();
    std::set<Path> folders;
    for (const auto* files : {&batch.filesToWrite, &batch.filesToRemove}) {
        Path last;
        for (const Path& file : *files) {
            const auto status = places.find(file);
            if (!status && file.text() == coreFile.text())
                requireNoOtherMetadata(batch.folder);
            requireFeasible(file, status);
            if (isDirectlyIn(last, file))
                continue;
            Path folder = getParentFolder(file);
            last = folder;
            while (folder != batch.folder && folders.insert(folder).second)
                folder = getParentFolder(folder);
        }
    }
    for (const Path& folder : folders)
        requireFeasibleFolder(folder);
}

/// Writes the new content of the file with the number `index`. What replaces a file takes its attributes, and is its
/// owner's only until it has them. What is new belongs to the owner of the folder that it comes into, or of the nearest
/// one above that is there.
void stage(const FileBatch& batch, std::size_t index, Places& places, NewFiles& newFiles,
           const std::optional<struct stat>& old) {
    const Path& file = batch.filesToWrite[index];
    const Path staged = getStagedFile(batch.folder, index);
    const bool replaces = old && S_ISREG(old->st_mode);
    if (replaces && !Descriptor(staged.accessName(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600).isOpen())
        raiseSystemError(file, errno);
    writeStaged([&](const Path& place) { batch.write(index, place); }, staged, file);
    if (replaces)
        takeAttributes(Descriptor(staged.accessName(), O_RDONLY | O_NOFOLLOW), file, *old, file);
    else if (const auto& folder = places.findFolder(file))
        newFiles.giveToOwner(staged, *folder);
}

/// Writes the new files. An error names the file itself, not the staged one. @return the steps that are to follow
Journal stage(const FileBatch& batch) {
    const std::size_t prefixLength = (batch.folder / u"-").accessName().size() - 1;
    Places places(batch.folder);
    NewFiles newFiles;
    Journal journal;
    for (std::size_t i = 0; i < batch.filesToWrite.size(); ++i) {
        host::Interruption::throwIfRequested();
        const Path& file = batch.filesToWrite[i];
        const auto old = places.find(file);
        stage(batch, i, places, newFiles, old);
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
/// disk, but it is one of the two. So what is flushed is opened before.
void carryOutOneStep(const FileBatch& batch) {
    const Path staged = getStagedFile(batch.folder, 0);
    const Path& file = batch.filesToWrite.front();
    // The folders above that of a new project may be new themselves.
    const bool isFirst = !exists(batch.folder / project::metadata::coreFileName());
    const OpenFolder folder(getParentFolder(file));
    flushFile(staged);
    if (std::rename(staged.accessName().c_str(), file.accessName().c_str()) != 0)
        raiseSystemError(file, errno);
    stampFolder(folder.path());
    if (isFirst)
        folder.flushFileSystem();
    else
        folder.flush();
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
        makeStagingFolder(batch.folder);
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
