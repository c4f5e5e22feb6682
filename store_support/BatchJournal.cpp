// The scratch folder ".pending" in a metadata folder holds:
//
//     new/0, new/1 ...   the new content of files, until it is put into place
//     old/0, old/1 ...   what was replaced or removed, under its number in the journal
//     journal            present from the moment when the batch is decided until all of its steps are done
//     journal-back       the same file, renamed, if the batch is being taken back because a step failed
//
// The journal is a line "project_metadata batch 1", and then for each file a letter (FileStep), its name relative to
// the metadata folder, and a zero byte. It comes into being by a rename, so it is never half there.
//
// Each step moves files and destroys nothing, so it can be done again after it was done, and in both directions: a
// batch that was interrupted at any point is carried on from its first step. A file has up to three places:
//
//     step        place of the new content    place of the old content    done    taken back
//     create  C   new/N, then the file        none                        new/N is gone   it is back
//     replace R   new/N, then the file        the file, and old/N         new/N is gone   both are back
//     remove  D   none                        the file, then old/N        old/N is there  it is gone
//
// Flushes stand where the order in which changes reach the disk matters: new files before the journal, the journal
// before the first step, folders that were made before what is put into them, the steps before the journal's removal,
// the turn to taking back before the first step of that. Once the journal is gone the batch is over, so nothing is
// removed before that which taking back needs.
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
#include <set>
#include <string_view>
#include <thread>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileAttributes.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using project::metadata::getParentFolder;

namespace {

constexpr std::u16string_view scratchName = u".pending";

constexpr std::string_view header = "project_metadata batch 1\n";

/// In bytes; a journal has some hundred a file.
constexpr std::size_t maximumJournalSize = std::size_t{1} << 30U;

Path getJournalFile(const Path& folder) {
    return getScratchFolder(folder) / u"journal";
}

Path getBackJournalFile(const Path& folder) {
    return getScratchFolder(folder) / u"journal-back";
}

/// The file with the number `index` in the folder `name` of the scratch folder. Asked for each file of a batch, this
/// makes no more texts than that.
Path getScratchFile(const Path& folder, std::u16string_view name, std::size_t index) {
    const std::string number = std::to_string(index);
    std::u16string text;
    text.reserve(folder.text().size() + scratchName.size() + name.size() + number.size() + 3);
    text.append(folder.text()).append(u"/").append(scratchName).append(u"/").append(name).append(u"/");
    text.append(number.begin(), number.end());
    return text;
}

Path getOldFile(const Path& folder, std::size_t index) {
    return getScratchFile(folder, u"old", index);
}

void rename(const Path& from, const Path& to, const Path& blamed) {
    if (std::rename(from.accessName().c_str(), to.accessName().c_str()) != 0)
        raiseSystemError(blamed, errno);
}

/// As `rename`, for what has been renamed already if it is not there any more.
void renameIfExists(const Path& from, const Path& to, const Path& blamed) {
    if (std::rename(from.accessName().c_str(), to.accessName().c_str()) == 0)
        return;
    const int code = errno;
    if (!isAbsence(code) || exists(from))
        raiseSystemError(blamed, code);
}

void writeJournal(const Path& folder, const Journal& journal) {
    const Path file = getJournalFile(folder);
    const Path draft = getScratchFolder(folder) / u"draft";
    std::string bytes(header);
    std::size_t size = bytes.size();
    for (const JournalEntry& entry : journal)
        size += entry.file.size() + 2;
    bytes.reserve(size);
    for (const JournalEntry& entry : journal)
        bytes += static_cast<char>(entry.step) + entry.file + '\0';
    if (!Descriptor(draft.accessName(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600).isOpen())
        raiseSystemError(draft, errno);
    share(draft, folder);
    writeFlushed(draft, bytes);
    rename(draft, file, file);
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

/// A journal as it was found. One that is damaged has no content.
struct FoundJournal {
    Path file;
    std::optional<Journal> content;
};

/// @return no value if `bytes` is no journal
std::optional<Journal> parseJournal(const Path& folder, const std::string& bytes) {
    if (bytes.compare(0, header.size(), header) != 0)
        return std::nullopt;
    Journal journal;
    for (std::size_t begin = header.size(); begin < bytes.size();) {
        const std::size_t end = bytes.find('\0', begin);
        if (end == std::string::npos || std::string_view("CRD").find(bytes[begin]) == std::string_view::npos)
            return std::nullopt;
        journal.push_back({static_cast<FileStep>(bytes[begin]), bytes.substr(begin + 1, end - begin - 1)});
        if (!isInside(folder, journal.back().file))
            return std::nullopt;
        begin = end + 1;
    }
    for (const auto* subfolder : {u"new", u"old"}) {
        if (!isFolder(getScratchFolder(folder) / subfolder))
            return std::nullopt;
    }
    return journal;
}

/// No value if there is none. If there is a journal, its name tells the direction.
std::optional<FoundJournal> findJournal(const Path& folder) {
    if (!isFolder(getScratchFolder(folder)))
        return std::nullopt;
    // In this order: a journal that is renamed meanwhile must not be missed.
    for (const Path& file : {getJournalFile(folder), getBackJournalFile(folder)}) {
        const auto status = findStatus(file);
        if (!status)
            continue;
        if (!S_ISREG(status->st_mode) || static_cast<std::size_t>(status->st_size) > maximumJournalSize)
            return FoundJournal{file, std::nullopt};
        const auto bytes = readRegularFile(file, maximumJournalSize);
        if (!bytes)
            continue;
        auto journal = parseJournal(folder, *bytes);
        // The batch may have come to its end meanwhile.
        if (journal || exists(file))
            return FoundJournal{file, std::move(journal)};
    }
    return std::nullopt;
}

bool hasSoundJournal(const Path& folder) {
    const auto journal = findJournal(folder);
    return journal && journal->content;
}

/// Whether this process may not look into the scratch folder.
bool isHidden(const Path& folder) {
    return eaccess(getScratchFolder(folder).accessName().c_str(), X_OK) != 0 && errno == EACCES;
}

void makeSharedFolder(const Path& scratch, const Path& folder) {
    if (mkdir(scratch.accessName().c_str(), 0777) != 0)
        raiseSystemError(scratch, errno);
    share(scratch, folder);
}

MetadataDamage makeDamage(const FoundJournal& journal) {
    return {journal.file, u"it is no journal of an interrupted change"};
}

/// Gives `file` the second name `copy`. That it has one already, or does not exist, is no error.
void keep(const Path& file, const Path& copy) {
    if (link(file.accessName().c_str(), copy.accessName().c_str()) == 0 || errno == EEXIST || errno == ENOENT)
        return;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK && errno != ENOSYS)
        raiseSystemError(file, errno);
    // A file system without links. A copy that was interrupted is of no use, so it gets its name at the end.
    const Path draft(copy.text() + u".draft");
    try {
        host::FileSystem::copy_file(file, draft, host::CopyOption::overwriteExisting);
    } catch (const host::FileSystemException& error) {
        raiseSystemError(file, error.code().value());
    }
    if (const auto status = findStatus(file); status && S_ISREG(status->st_mode))
        takeAttributes(Descriptor(draft.accessName(), O_RDONLY | O_NOFOLLOW), file, *status, file);
    flushFile(draft);
    rename(draft, copy, file);
}

void doStep(const Path& folder, const JournalEntry& entry, std::size_t index) {
    const Path file = folder / Path::fromAccessName(entry.file);
    const Path staged = getStagedFile(folder, index);
    if (entry.step == FileStep::remove) {
        renameIfExists(file, getOldFile(folder, index), file);
    } else if (entry.step == FileStep::create) {
        renameIfExists(staged, file, file);
    } else if (exists(staged)) {
        keep(file, getOldFile(folder, index));
        rename(staged, file, file);
    }
}

void undoStep(const Path& folder, const JournalEntry& entry, std::size_t index) {
    const Path file = folder / Path::fromAccessName(entry.file);
    const Path staged = getStagedFile(folder, index);
    const Path old = getOldFile(folder, index);
    if (entry.step == FileStep::create) {
        if (!exists(staged) && exists(file))
            rename(file, staged, file);
    } else if (exists(old)) {
        if (entry.step == FileStep::replace)
            keep(file, staged);
        rename(old, file, file);
    } else if (entry.step == FileStep::replace && !exists(staged)) {
        raise<MetadataWriteFailure>(file.text(), u"its old content, to which it was to return, is gone");
    }
}

/// The folders of the files for which `isWanted` holds, each once, parents first.
template <class Predicate>
std::set<Path> getFolders(const Path& folder, const Journal& journal, const Predicate& isWanted) {
    std::set<Path> folders;
    std::string_view last;  // entries of one folder mostly follow each other
    for (const JournalEntry& entry : journal) {
        if (!isWanted(entry))
            continue;
        const std::string_view parent = std::string_view(entry.file).substr(0, entry.file.rfind('/') + 1);
        if (folders.empty() || parent != last)
            folders.insert(getParentFolder(folder / Path::fromAccessName(entry.file)));
        last = parent;
    }
    return folders;
}

/// Makes the folders of new files. @return whether any was missing
bool makeFolders(const Path& folder, const Journal& journal) {
    bool isAnyNew = false;
    for (const Path& place :
         getFolders(folder, journal, [](const JournalEntry& entry) { return entry.step == FileStep::create; })) {
        if (isFolder(place))
            continue;
        isAnyNew = true;
        makeFolderOfOwner(place);
    }
    return isAnyNew;
}

/// Shows readers that the folders of the files have changed.
void stampFolders(const Path& folder, const Journal& journal) {
    const auto folders = getFolders(folder, journal, [](const JournalEntry&) { return true; });
    std::for_each(folders.begin(), folders.end(), stampFolder);
}

/// Removes the folders above the files that `step` was meant for, up to the metadata folder, that are empty. An empty
/// folder that stays does no harm.
void removeEmptyFolders(const Path& folder, const Journal& journal, FileStep step) {
    const auto folders = getFolders(folder, journal, [&](const JournalEntry& entry) { return entry.step == step; });
    for (auto place = folders.rbegin(); place != folders.rend(); ++place) {
        for (Path above = *place; above != folder && rmdir(above.accessName().c_str()) == 0;)
            above = getParentFolder(above);
    }
}

/// What is left to do once the steps are done and on disk, in either direction.
/// @param file the journal
/// @param leaving the kind of step that leaves folders empty
void finish(const Path& folder, const Journal& journal, const Path& file, FileStep leaving) {
    removeEmptyFolders(folder, journal, leaving);
    stampFolders(folder, journal);
    if (unlink(file.accessName().c_str()) != 0)
        raiseSystemError(file, errno);
    flushFile(getScratchFolder(folder));
}

/// What is done so far must be on disk.
void takeBack(const Path& folder, const Journal& journal) {
    flushFile(getScratchFolder(folder));
    for (std::size_t i = 0; i < journal.size(); ++i)
        undoStep(folder, journal[i], i);
    flushFileSystem(folder);
    finish(folder, journal, getBackJournalFile(folder), FileStep::create);
}

/// Carries out `step`; if that fails, turns from carrying out to taking back.
template <class Step>
void attempt(const Path& folder, const Journal& journal, const Step& step) {
    try {
        step();
    } catch (...) {
        try {
            flushFileSystem(folder);
            // A rename needs no space, which may be what is lacking.
            rename(getJournalFile(folder), getBackJournalFile(folder), getJournalFile(folder));
            takeBack(folder, journal);
        } catch (...) {
            // There still is a journal, in one direction or the other, and whoever comes next goes on from there.
        }
        throw;
    }
}

void doAllOrNone(const Path& folder, const Journal& journal) {
    flushFile(getScratchFolder(folder));
    bool madeFolders = false;
    attempt(folder, journal, [&] { madeFolders = makeFolders(folder, journal); });
    if (madeFolders)
        flushFileSystem(folder);
    attempt(folder, journal, [&] {
        for (std::size_t i = 0; i < journal.size(); ++i)
            doStep(folder, journal[i], i);
    });
    flushFileSystem(folder);
    finish(folder, journal, getJournalFile(folder), FileStep::remove);
}

}  // namespace

Path getScratchFolder(const Path& folder) {
    return folder / std::u16string(scratchName);
}

Path getStagedFile(const Path& folder, std::size_t index) {
    return getScratchFile(folder, u"new", index);
}

void makeStagingFolder(const Path& folder) {
    makeSharedFolder(getScratchFolder(folder), folder);
    makeSharedFolder(getScratchFolder(folder) / u"new", folder);
}

void carryOut(const Path& folder, const Journal& journal) {
    makeSharedFolder(getScratchFolder(folder) / u"old", folder);
    flushFileSystem(folder);
    writeJournal(folder, journal);
    doAllOrNone(folder, journal);
}

void recover(const Path& folder) {
    std::optional<FoundJournal> found;
    try {
        found = findJournal(folder);
    } catch (const MetadataReadFailure&) {
        // Its maker may have died before others could look into it: then it is empty.
        if (rmdir(getScratchFolder(folder).accessName().c_str()) != 0)
            throw;
    }
    if (found) {
        if (!found->content) {
            const MetadataDamage damage = makeDamage(*found);
            raise<MetadataWriteFailure>(damage.file.text(), damage.problem);
        }
        if (found->file == getJournalFile(folder))
            doAllOrNone(folder, *found->content);
        else
            takeBack(folder, *found->content);
    }
    removeTree(getScratchFolder(folder));
}

bool isInterrupted(const Path& folder) {
    try {
        return hasSoundJournal(folder);
    } catch (const MetadataReadFailure&) {
        // It may have come to its end meanwhile.
        return isHidden(folder) || hasSoundJournal(folder);
    }
}

std::optional<MetadataDamage> findJournalDamage(const Path& folder) {
    const auto journal = findJournal(folder);
    return journal && !journal->content ? std::optional(makeDamage(*journal)) : std::nullopt;
}

std::optional<Path> setAsideDamagedChange(const Path& folder) {
    if (!findJournalDamage(folder))
        return std::nullopt;
    const FolderLock lock = FolderLock::withoutCleaningUp(folder);
    if (!findJournalDamage(folder))
        return std::nullopt;
    for (int number = 1;; ++number) {
        Path place = folder / Path::fromAccessName("damaged-change-" + std::to_string(number));
        if (exists(place))
            continue;
        rename(getScratchFolder(folder), place, getScratchFolder(folder));
        flushFile(folder);
        return place;
    }
}

void settle(const Path& folder) {
    // Who may not write here waits for who may, but not for nobody.
    constexpr auto patience = std::chrono::seconds(1);
    const auto beginning = std::chrono::steady_clock::now();
    while (isInterrupted(folder)) {
        // That it is read-only may have been said only once, by a server that has come to itself again.
        if (!host::FileUtils::isReadOnlyNoExcept(folder)) {
            try {
                const FolderLock lock(folder);
            } catch (const MetadataWriteFailure& error) {
                const auto& arguments = error.GetBaseMsgIDObj().arguments;
                raise<MetadataReadFailure>(std::get<std::u16string>(arguments.at(0)),
                                           std::get<std::u16string>(arguments.at(1)));
            }
            return;
        }
        const auto waited = std::chrono::steady_clock::now() - beginning;
        if (waited >= lockLimit || (waited >= patience && !isLockHeld(folder))) {
            raise<MetadataReadFailure>(
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

}  // namespace store_support
