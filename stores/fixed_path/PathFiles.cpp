// The disk form. In the metadata folder:
//
//     Project.xml                     <Project MetadataType="fixedPath"/>, with a <Node> if the root path has a node
//     Folder=src.xml                  the file of the path Folder:src
//     Folder=src/File=main.c.xml      the file of the path Folder:src|File:main.c
//
// NodeFileName.hpp says how names are made, PathXml.hpp what an element "Path" holds. Here it has one attribute more,
// the rank among its siblings (Rank.hpp); siblings of equal rank, which come about when changes of two people are
// merged, are ordered by their elements. The content is the truth: a file whose name is not the one of its element is
// damaged. Every existing path has a file; where it is missing, because one side of a merge removed a path below which
// the other added one, the folder's name still tells the path. Other files in the folder are none of the store's
// business. While a change is under way there is a file ".lock" (FolderLock.hpp) and a folder
// ".pending" (BatchJournal.cpp).

#include "stores/fixed_path/PathFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataDamage;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using project::metadata::stripExtension;
using store_support::Descriptor;
using store_support::FileVersion;
using store_support::findStatus;
using store_support::FolderEntry;
using store_support::getFileVersion;
using store_support::getReadProblem;
using store_support::isFolder;
using store_support::listEntries;
using store_support::listNames;
using store_support::makeFileVersion;
using store_support::readXmlFile;
using store_support::toNanoseconds;
using store_support::XmlFile;

namespace {

const std::u16string& missing = *new std::u16string(u"it is missing, while there are paths below it");

/// The extension of node files as the system knows it; made when it is first asked for, after what it is made of.
const std::string& getExtension() {
    static const std::string& extension = *new std::string(host::toUtf8(nodeFileExtension));
    return extension;
}

/// A path whose file is missing.
PathFilePtr makeBranch(const PathElement& element) {
    auto content = std::make_shared<PathFile>();
    content->element = element;
    content->setDamage(missing);
    return content;
}

MetadataDamage describe(const Path& file, const PathFileDamage& damage) {
    return {file, damage.problem, false, damage.isForeign};
}

bool isBefore(const Child& a, const Child& b) {
    const PathFile& first = *a.content;
    const PathFile& second = *b.content;
    if (first.rank == second.rank)
        return first.element < second.element;
    return !first.rank.empty() && (second.rank.empty() || first.rank < second.rank);
}

void sort(Listing& listing) {
    std::sort(listing.children.begin(), listing.children.end(), isBefore);
}

/// The path element that the name of `file` tells, if it does.
std::optional<PathElement> parseFileName(const Path& file) {
    return parseNodeFolderName(stripExtension(file.fileName().text(), nodeFileExtension));
}

std::int64_t readClock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return toNanoseconds(now);
}

/// The time that the file system of `folder` gives to what is made there now; no value if it cannot be asked. It may be
/// another machine's. Nothing is left behind, whenever this ends: a file without a name is made or, where the file
/// system has none, the folder is touched.
std::optional<std::int64_t> askFileSystem(const std::string& folder) {
    struct stat status {};
    const Descriptor unnamed(folder, O_TMPFILE | O_WRONLY, 0600);
    const bool isKnown = unnamed.isOpen() ? fstat(unnamed.number(), &status) == 0
                                          : (errno == EOPNOTSUPP || errno == EISDIR) &&
                                                utimensat(AT_FDCWD, folder.c_str(), nullptr, 0) == 0 &&
                                                stat(folder.c_str(), &status) == 0;
    return isKnown ? std::optional(toNanoseconds(status.st_ctim)) : std::nullopt;
}

/// A moment such that what has changed in `folder` so far did not change later, and what will, will. The clocks of file
/// systems tick every few milliseconds only, so this waits for the next tick.
std::int64_t findBeginning(const Path& folder) {
    constexpr std::int64_t longestTick = 2'000'000'000;
    constexpr auto pause = std::chrono::microseconds(200);
    const std::string name = folder.accessName();
    const std::int64_t start = readClock(CLOCK_MONOTONIC);
    const auto isPatient = [&] { return readClock(CLOCK_MONOTONIC) - start < longestTick; };
    if (const auto first = askFileSystem(name)) {
        for (auto now = first; now && *now <= *first && isPatient(); now = askFileSystem(name))
            std::this_thread::sleep_for(pause);
        return *first;
    }
    // Nobody may write here, or there is nothing yet. The clock of this machine must do; that of files lags behind it.
    const std::int64_t now = readClock(CLOCK_REALTIME);
    while (readClock(CLOCK_REALTIME_COARSE) <= now && isPatient() && isFolder(folder))
        std::this_thread::sleep_for(pause);
    return now;
}

/// What new permissions and further names do not change.
FileVersion getContentVersion(FileVersion version) {
    version.changed = 0;
    return version;
}

void requireName(const Path& file, const std::u16string& name) {
    if (file.fileName().text() != name) {
        raise<MetadataReadFailure>(
            file.text(), u"its name does not fit its content, which belongs into a file named \"" + name + u"\"");
    }
}

}  // namespace

bool isEnough(const PathFilePtr& content, Extent extent) {
    return content && (extent == Extent::place || !content->hasNode || content->node);
}

PathFiles::PathFiles(Path folder)
    : folder_(std::move(folder)),
      coreFile_(folder_ / project::metadata::coreFileName()),
      scratchFolder_(store_support::getScratchFolder(folder_)),
      scratchName_(scratchFolder_.accessName()),
      walk_{{PathElement({}, {}), coreFile_, coreFile_.accessName(), folder_, folder_.accessName()}},
      beginning_(findBeginning(folder_)) {}

const PathFiles::Place& PathFiles::locate(const MetadataPath& path) const {
    walk(path, path.getPath().size());
    return walk_.back();
}

void PathFiles::walk(const MetadataPath& path, std::size_t depth) const {
    const auto& elements = path.getPath();
    std::size_t known = 0;
    while (known + 1 < walk_.size() && known < depth && walk_[known + 1].element == elements[known])
        ++known;
    walk_.erase(walk_.begin() + static_cast<std::ptrdiff_t>(known + 1), walk_.end());
    for (; known < depth; ++known) {
        const Place& above = walk_.back();
        const Path folderHere(nodeFolderName(elements[known]));
        Path folder = above.folder / folderHere;
        std::string folderName = above.folderName + '/' + folderHere.accessName();
        Path file(folder.text() + nodeFileExtension);
        std::string fileName = folderName + getExtension();
        walk_.push_back(
            {elements[known], std::move(file), std::move(fileName), std::move(folder), std::move(folderName)});
    }
}

bool PathFiles::hasScratchFolder() const {
    return findStatus(scratchFolder_, scratchName_).has_value();
}

void PathFiles::settle() const {
    if (hasScratchFolder())
        store_support::settle(folder_);
}

bool PathFiles::isInterrupted() const {
    return hasScratchFolder() && store_support::isInterrupted(folder_);
}

PathFilePtr PathFiles::read(const Path& file, Extent extent) const {
    return read(file, file.accessName(), extent);
}

PathFilePtr PathFiles::read(const Path& file, const std::string& name, Extent extent) const {
    host::Interruption::throwIfRequested();
    const auto status = findStatus(file, name);
    if (!status)
        return nullptr;
    auto content = cache_.find(file, makeFileVersion(*status));
    if (isEnough(content, extent))
        return content;
    content = note(file, readXmlFile(file, *status));
    if (content)
        cache_.insert(file, content);
    return content;
}

PathFilePtr PathFiles::readEntry(const Path& file, const std::string& name, const FolderEntry& entry) const {
    // Of what is known, a look tells whether it is still true; what is not is read without one.
    const bool isNew = entry.isRegular && !cache_.findAnyVersion(entry.inode);
    const auto xml = isNew ? store_support::readSmallFile(name) : std::nullopt;
    if (!xml)
        return read(file, name, Extent::place);
    host::Interruption::throwIfRequested();
    PathFilePtr content = note(file, *xml);
    cache_.insert(file, content);
    return content;
}

PathFilePtr PathFiles::readForChange(const Path& file, Extent extent) const {
    host::Interruption::throwIfRequested();
    const auto status = findStatus(file);
    if (!status)
        return nullptr;
    auto known = cache_.find(file, makeFileVersion(*status));
    if (isEnough(known, extent))
        return known;
    auto content = note(file, readXmlFile(file, *status));
    if (content && !known) {
        auto place = std::make_shared<PathFile>(*content);
        place->node = nullptr;
        cache_.insert(file, std::move(place));
    }
    return content;
}

PathFilePtr PathFiles::note(const Path& file, const XmlFile& xml) const {
    if (!xml.version)
        return nullptr;
    auto content = std::make_shared<const PathFile>(interpret(file, xml));
    if (content->damage)
        store_support::reportDamage(describe(file, *content->damage));
    // What was there in the beginning is known. It still is if only its permissions or names are new.
    const auto before = cache_.findAnyVersion(content->version.inode);
    if (before && content->version.changed > beginning_ && before->version.changed <= beginning_ &&
        getContentVersion(before->version) == getContentVersion(content->version)) {
        seen_.insert(getContentVersion(content->version));
    }
    return content;
}

PathFile PathFiles::interpret(const Path& file, const XmlFile& xml) const {
    const bool isRoot = file == coreFile_;
    PathFile content;
    if (!xml.problem.empty())
        content.setDamage(xml.problem);
    try {
        if (xml.root) {
            PathFile read = fromXml(*xml.root, isRoot, file);
            if (!isRoot)
                requireName(file, nodeFileName(read.element));
            content = std::move(read);
            if (!content.damage && !xml.foreign.empty())
                content.setDamage(xml.foreign, true);
        }
    } catch (const MetadataReadFailure& error) {
        content.setDamage(getReadProblem(error));
    }
    if (content.damage && !isRoot)
        content.element = parseFileName(file).value_or(content.element);
    content.version = *xml.version;
    content.hasNode = content.node != nullptr;
    return content;
}

PathFiles::Folder PathFiles::readFolder(const Path& childFolder, Damages* damages) const {
    Folder folder;
    std::vector<std::pair<Path, FolderEntry>> files;  // each with its name here
    for (FolderEntry& entry : listEntries(childFolder)) {
        Path name = Path::fromAccessName(entry.name);
        if (isNodeFile(name))
            files.emplace_back(std::move(name), std::move(entry));
        else if (isNodeFolder(name))
            folder.folders.emplace(name.text(), false);
    }
    folder.listing.children.reserve(files.size());
    folder.hasFiles = !files.empty();
    const std::string start = childFolder.accessName() + '/';
    for (const auto& [name, entry] : files) {
        const auto below = folder.folders.find(stripExtension(name.text(), nodeFileExtension));
        const bool hasFolder = below != folder.folders.end();
        if (hasFolder)
            below->second = true;
        const Path file = childFolder / name;
        try {
            const PathFilePtr content = readEntry(file, start + entry.name, entry);
            // Another process may have removed it since. A damaged one may not even tell which path it was.
            if (content && (!content->damage || name.text() == nodeFileName(content->element)))
                folder.listing.children.push_back({content, hasFolder});
            else
                folder.listing.isAll = false;
            if (content && content->damage && damages)
                damages->insert_or_assign(file, describe(file, *content->damage));
        } catch (const MetadataReadFailure& error) {
            if (!damages)
                throw;
            damages->insert_or_assign(file, MetadataDamage{file, getReadProblem(error)});
            folder.listing.isAll = false;
        }
    }
    for (const auto& [name, hasFile] : folder.folders)
        folder.listing.isAll = folder.listing.isAll && hasFile;
    return folder;
}

Listing PathFiles::readChildren(const Path& childFolder) const {
    Folder folder = readFolder(childFolder, nullptr);
    for (const auto& [name, hasFile] : folder.folders) {
        const auto element = hasFile ? std::nullopt : parseNodeFolderName(name);
        if (element && hasChildren(childFolder / Path(name)))
            folder.listing.children.push_back({makeBranch(*element), true});
    }
    sort(folder.listing);
    return std::move(folder.listing);
}

void PathFiles::endReading() noexcept {
    if (--readings_ == 0)
        listings_.clear();
}

void PathFiles::remember(const Path& childFolder, const Listing& listing) const {
    if (readings_ > 0)
        listings_.add(childFolder, listing);
}

std::optional<Child> PathFiles::recall(const MetadataPath& path) const {
    const auto& elements = path.getPath();
    if (readings_ == 0 || elements.empty())
        return std::nullopt;
    walk(path, elements.size() - 1);
    return listings_.find(walk_.back().folder, elements.back(), cache_);
}

std::optional<Listing> PathFiles::recallChildren(const Path& childFolder) const {
    auto listing = listings_.find(childFolder, cache_);
    if (listing)
        sort(*listing);
    return listing;
}

Rank PathFiles::findLastRank(const Path& childFolder) const {
    const auto version = getFileVersion(childFolder);
    if (!version)
        return {};
    const auto known = lastRanks_.find(childFolder.text());
    if (known != lastRanks_.end() && known->second.version == *version)
        return known->second.rank;
    Rank last;
    for (const Child& child : readChildren(childFolder).children)
        last = std::max(last, child.content->rank);
    lastRanks_.insert_or_assign(childFolder.text(), LastRank{*version, last});
    return last;
}

void PathFiles::noteLastRank(const Path& childFolder, const Rank& rank) {
    if (const auto version = getFileVersion(childFolder))
        lastRanks_.insert_or_assign(childFolder.text(), LastRank{*version, rank});
}

bool PathFiles::hasChildren(const Path& childFolder) const {
    return isFolder(childFolder) && !visitFiles(childFolder, [](const Path& /*file*/) { return false; });
}

bool PathFiles::visitFiles(const Path& childFolder, const std::function<bool(const Path& file)>& visit) const {
    std::vector<Path> folders{childFolder};
    while (!folders.empty()) {
        const Path folder = std::move(folders.back());
        folders.pop_back();
        for (const std::string& name : listNames(folder)) {
            Path entry = folder / Path::fromAccessName(name);
            if (isNodeFile(entry)) {
                if (!visit(entry))
                    return false;
            } else if (isNodeFolder(entry) && isFolder(entry)) {
                folders.push_back(std::move(entry));
            }
        }
    }
    return true;
}

std::vector<Path> PathFiles::list(const Path& childFolder) const {
    std::vector<Path> files;
    visitFiles(childFolder, [&](const Path& file) {
        files.push_back(file);
        return true;
    });
    return files;
}

bool PathFiles::findDamage(const Path& childFolder, Damages& damages) const {
    if (const auto known = listings_.find(childFolder, cache_); known && known->isAll) {
        for (const auto& [content, hasFolder] : known->children) {
            const Path below = childFolder / Path(nodeFolderName(content->element));
            const Path file(below.text() + nodeFileExtension);
            if (content->damage)
                damages[file] = describe(file, *content->damage);
            if (hasFolder && isFolder(below))
                findDamage(below, damages);
        }
        return !known->children.empty();
    }
    const auto version = readings_ > 0 ? getFileVersion(childFolder) : std::nullopt;
    const Folder folder = readFolder(childFolder, &damages);
    if (version && folder.listing.isAll && !isInterrupted() && getFileVersion(childFolder) == version)
        remember(childFolder, folder.listing);
    bool hasPaths = folder.hasFiles;
    for (const auto& [name, hasFile] : folder.folders) {
        const Path below = childFolder / Path(name);
        if (!isFolder(below) || !findDamage(below, damages))
            continue;
        hasPaths = true;
        const Path file(below.text() + nodeFileExtension);
        // A name that was cut does not tell the path.
        if (!hasFile)
            damages[file] = {file, missing, parseNodeFolderName(name).has_value()};
    }
    return hasPaths;
}

std::vector<MetadataDamage> PathFiles::findDamage() const {
    Damages damages;
    const bool hasPaths = findDamage(folder_, damages);
    try {
        const PathFilePtr root = read(coreFile_, Extent::place);
        if (root && root->damage)
            damages[coreFile_] = describe(coreFile_, *root->damage);
        else if (!root && hasPaths)
            damages[coreFile_] = {coreFile_, missing};
    } catch (const MetadataReadFailure& error) {
        damages[coreFile_] = {coreFile_, getReadProblem(error)};
    }
    if (const auto journal = store_support::findJournalDamage(folder_))
        damages[journal->file] = *journal;
    std::vector<MetadataDamage> result;
    result.reserve(damages.size());
    for (auto& [file, found] : damages)
        result.push_back(std::move(found));
    return result;
}

void PathFiles::noteWritten(const Path& file, PathFile content) {
    cache_.insert(file, std::make_shared<const PathFile>(std::move(content)));
}

void PathFiles::markSeen(const FileVersion& version) {
    if (version.changed > beginning_)
        seen_.insert(getContentVersion(version));
}

void PathFiles::forget(const FileVersion& version) {
    seen_.erase(getContentVersion(version));
}

bool PathFiles::isSeen(const Path& file, const FileVersion& version) const {
    if (version.changed <= beginning_ || seen_.count(getContentVersion(version)) != 0)
        return true;
    // Only its permissions or names are new, unless another file has been put in its place.
    return version.modified <= beginning_ && isOurs(project::metadata::getParentFolder(file));
}

bool PathFiles::isOurs(const Path& folder) const {
    const auto version = getFileVersion(folder);
    const auto ours = ours_.find(folder.text());
    return version && (version->changed <= beginning_ || (ours != ours_.end() && ours->second == version->changed));
}

void PathFiles::markOurs(const Path& folder) {
    if (const auto version = getFileVersion(folder))
        ours_.insert_or_assign(folder.text(), version->changed);
}

}  // namespace stores::fixed_path
