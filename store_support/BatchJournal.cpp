// The scratch folder ".pending" in a metadata folder holds:
//
//     new/0, new/1 ...   the new content of files, until it is put into place
//     old/0, old/1 ...   what was replaced or removed, under its number in the journal
//     journal            present from the moment when the batch is decided until all of its steps are done
//     journal-back       the same file, renamed, if the batch is being taken back because a step failed
//
// The journal is a line "project_metadata batch 1", and then for each file a letter (FileStep), its name relative to
// the metadata folder, and a zero byte. It comes into being by a rename, so it is never half there. Each step can be
// done again after it was done, in both directions, so a batch that was interrupted at any point is carried on from its
// first step.
//
// A journal is found in a folder that may come from anywhere. So what it names must lie in the metadata folder, and
// nothing on the way there may be a symbolic link.

#include "store_support/BatchJournal.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <thread>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;

namespace {

const std::string& header = *new std::string("project_metadata batch 1");

Path getJournalFile(const Path& folder) {
    return getScratchFolder(folder) / u"journal";
}

Path getBackJournalFile(const Path& folder) {
    return getScratchFolder(folder) / u"journal-back";
}

Path getOldFile(const Path& folder, std::size_t index) {
    return getScratchFolder(folder) / u"old" / Path::fromAccessName(std::to_string(index));
}

bool exists(const Path& path) {
    struct stat status {};
    return lstat(path.accessName().c_str(), &status) == 0;
}

/// Symbolic links do not count.
bool isFolder(const Path& path) {
    struct stat status {};
    return lstat(path.accessName().c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// @return the reason why it failed, 0 if it did not
int tryToRename(const Path& from, const Path& to) {
    return std::rename(from.accessName().c_str(), to.accessName().c_str()) == 0 ? 0 : errno;
}

void writeJournal(const Path& folder, const Journal& journal) {
    const Path file = getJournalFile(folder);
    const Path draft = getScratchFolder(folder) / u"draft";
    std::ofstream stream(draft.accessName(), std::ios::binary | std::ios::trunc);
    stream << header << '\n';
    for (const JournalEntry& entry : journal)
        stream << static_cast<char>(entry.step) << entry.file << '\0';
    stream.close();
    if (!stream)
        raiseSystemError(draft, errno);
    flushFile(draft);
    if (const int reason = tryToRename(draft, file))
        raiseSystemError(file, reason);
    flushFile(getScratchFolder(folder));
}

/// Whether `name` leads to a place in `folder`, through folders only.
bool isInside(const Path& folder, const std::string& name) {
    Path place = folder;
    std::size_t begin = 0;
    while (true) {
        const std::size_t end = name.find('/', begin);
        const std::string part = name.substr(begin, end - begin);
        if (part.empty() || part == "." || part == "..")
            return false;
        if (end == std::string::npos)
            return true;
        place /= Path::fromAccessName(part);
        if (exists(place) && !isFolder(place))
            return false;
        begin = end + 1;
    }
}

/// @param file the journal
Journal readJournal(const Path& folder, const Path& file) {
    const auto require = [&](bool isTrue) {
        if (!isTrue)
            raise<MetadataWriteFailure>(file.text(), u"it is no journal of an interrupted change");
    };
    std::ifstream stream(file.accessName(), std::ios::binary);
    std::string line;
    std::getline(stream, line);
    require(line == header);
    Journal journal;
    while (std::getline(stream, line, '\0')) {
        require(line.find_first_of("CRD") == 0 && !stream.eof() && isInside(folder, line.substr(1)));
        journal.push_back({static_cast<FileStep>(line[0]), line.substr(1)});
    }
    for (const auto* subfolder : {u"new", u"old"})
        require(isFolder(getScratchFolder(folder) / subfolder));
    return journal;
}

/// Gives the old file of a replaced one a second name, so that it can come back.
void keepOld(const Path& file, const Path& old) {
    if (link(file.accessName().c_str(), old.accessName().c_str()) == 0 || errno == EEXIST || errno == ENOENT)
        return;
    // A file system without links. A copy that was interrupted is of no use, so it gets its name at the end.
    const Path draft(old.text() + u".draft");
    host::FileSystem::copy_file(file, draft, host::CopyOption::overwriteExisting);
    flushFile(draft);
    if (const int reason = tryToRename(draft, old))
        raiseSystemError(file, reason);
}

void doStep(const Path& folder, const JournalEntry& entry, std::size_t index) {
    const Path file = folder / Path::fromAccessName(entry.file);
    const Path staged = getStagedFile(folder, index);
    const Path old = getOldFile(folder, index);
    int reason = 0;
    if (entry.step == FileStep::remove) {
        reason = tryToRename(file, old);
    } else if (exists(staged)) {
        if (entry.step == FileStep::replace)
            keepOld(file, old);
        reason = tryToRename(staged, file);
        if (reason == ENOENT && entry.step == FileStep::create) {
            project::metadata::makeFolder(project::metadata::getParentFolder(file));
            reason = tryToRename(staged, file);
        }
        if (reason == ENOENT)  // its folder has been removed since
            raiseSystemError(file, reason);
    }
    if (reason != 0 && reason != ENOENT)
        raiseSystemError(file, reason);
}

void undoStep(const Path& folder, const JournalEntry& entry, std::size_t index) {
    const Path file = folder / Path::fromAccessName(entry.file);
    int reason = 0;
    if (entry.step != FileStep::create)
        reason = tryToRename(getOldFile(folder, index), file);
    else if (!exists(getStagedFile(folder, index)) && unlink(file.accessName().c_str()) != 0)
        reason = errno;
    if (reason != 0 && reason != ENOENT)
        raiseSystemError(file, reason);
}

/// Shows readers that the folders of the files have changed.
void stampFolders(const Path& folder, const Journal& journal) {
    std::set<Path> folders;
    for (const JournalEntry& entry : journal)
        folders.insert(project::metadata::getParentFolder(folder / Path::fromAccessName(entry.file)));
    std::for_each(folders.begin(), folders.end(), stampFolder);
}

/// Removes the folders above the files that `step` was meant for, up to the metadata folder, that are empty.
void removeEmptyFolders(const Path& folder, const Journal& journal, FileStep step) {
    for (const JournalEntry& entry : journal) {
        Path place = entry.step == step ? folder / Path::fromAccessName(entry.file) : folder;
        while (place != folder) {
            place = project::metadata::getParentFolder(place);
            if (place == folder || rmdir(place.accessName().c_str()) != 0)
                break;
        }
    }
}

/// @param file the journal, which is removed once all steps are done
/// @param leaving the kind of step that leaves folders empty
template <class Step>
void doAll(const Path& folder, const Journal& journal, const Path& file, const Step& step, FileStep leaving) {
    for (std::size_t i = 0; i < journal.size(); ++i)
        step(folder, journal[i], i);
    removeEmptyFolders(folder, journal, leaving);
    stampFolders(folder, journal);
    flushFileSystem(folder);
    if (unlink(file.accessName().c_str()) != 0)
        raiseSystemError(file, errno);
    flushFile(getScratchFolder(folder));
}

void takeBack(const Path& folder, const Journal& journal) {
    const Path file = getBackJournalFile(folder);
    // A rename needs no space, which may be what is lacking.
    const int reason = tryToRename(getJournalFile(folder), file);
    if (reason != 0 && reason != ENOENT)
        raiseSystemError(file, reason);
    doAll(folder, journal, file, undoStep, FileStep::create);
}

void doAllOrNone(const Path& folder, const Journal& journal) {
    try {
        doAll(folder, journal, getJournalFile(folder), doStep, FileStep::remove);
    } catch (...) {
        takeBack(folder, journal);
        throw;
    }
}

}  // namespace

Path getScratchFolder(const Path& folder) {
    return folder / u".pending";
}

Path getStagedFile(const Path& folder, std::size_t index) {
    return getScratchFolder(folder) / u"new" / Path::fromAccessName(std::to_string(index));
}

void carryOut(const Path& folder, const Journal& journal) {
    project::metadata::makeFolder(getScratchFolder(folder) / u"old");
    flushFileSystem(folder);
    writeJournal(folder, journal);
    doAllOrNone(folder, journal);
}

void recover(const Path& folder) {
    const Path scratch = getScratchFolder(folder);
    if (!exists(scratch))
        return;
    if (isFolder(scratch)) {
        if (const Path file = getJournalFile(folder); exists(file))
            doAllOrNone(folder, readJournal(folder, file));
        else if (const Path backFile = getBackJournalFile(folder); exists(backFile))
            takeBack(folder, readJournal(folder, backFile));
    }
    project::metadata::deleteFiles({scratch});
}

bool isInterrupted(const Path& folder) {
    return isFolder(getScratchFolder(folder)) && (exists(getJournalFile(folder)) || exists(getBackJournalFile(folder)));
}

void settle(const Path& folder) {
    if (!isInterrupted(folder))
        return;
    if (!host::FileUtils::isReadOnlyNoExcept(folder)) {
        const FolderLock lock(folder);
        return;
    }
    const auto end = std::chrono::steady_clock::now() + lockLimit;
    while (isInterrupted(folder)) {
        if (std::chrono::steady_clock::now() >= end) {
            raise<project::metadata::MetadataReadFailure>(
                getScratchFolder(folder).text(),
                u"a change was interrupted, and has to be completed by a user who may write in this folder");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void stampFolder(const Path& folder) {
    timespec times[2] = {{0, UTIME_OMIT}, {}};
    clock_gettime(CLOCK_REALTIME, &times[1]);
    // It may have been removed since.
    utimensat(AT_FDCWD, folder.accessName().c_str(), times, 0);
}

void flushFile(const Path& path) {
    const int descriptor = open(path.accessName().c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        raiseSystemError(path, errno);
    const int reason = fsync(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    if (reason != 0)
        raiseSystemError(path, reason);
}

void flushFileSystem(const Path& folder) {
    const int descriptor = open(folder.accessName().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        raiseSystemError(folder, errno);
    const int reason = syncfs(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    if (reason != 0)
        raiseSystemError(folder, reason);
}

}  // namespace store_support
