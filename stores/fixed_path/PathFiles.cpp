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
#include <map>
#include <optional>
#include <thread>
#include <utility>

#include "host/Interruption.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataDamage;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using store_support::Descriptor;
using store_support::FileVersion;
using store_support::findStatus;
using store_support::getFileVersion;
using store_support::getPathElement;
using store_support::getReadProblem;
using store_support::isFolder;
using store_support::listNames;
using store_support::makeFileVersion;
using store_support::pathElementName;
using store_support::projectElementName;
using store_support::putNode;
using store_support::putPathElement;
using store_support::readXmlFile;
using store_support::toNanoseconds;
using store_support::XmlFile;

const std::u16string& fixedPathName = *new std::u16string(u"fixedPath");

namespace {

const std::u16string& rankKey = *new std::u16string(u"Rank");
const std::u16string& extension = *new std::u16string(u".xml");
const std::u16string& missing = *new std::u16string(u"it is missing, while there are paths below it");

bool isBefore(const PathFilePtr& a, const PathFilePtr& b) {
    if (a->rank == b->rank)
        return a->element < b->element;
    return !a->rank.empty() && (b->rank.empty() || a->rank < b->rank);
}

/// The path element that the name of `file` tells, if it does.
std::optional<PathElement> parseFileName(const Path& file) {
    return parseNodeFolderName(project::metadata::stripExtension(file.fileName().text(), extension));
}

std::int64_t readClock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return toNanoseconds(now);
}

/// The time that the file system of `folder` gives to what is made there now; no value if it cannot be asked. It may be
/// another machine's. The file that is made for that never gets a name, where the file system can do so.
std::optional<std::int64_t> askFileSystem(const std::string& folder) {
    struct stat status {};
    const Descriptor unnamed(folder, O_TMPFILE | O_WRONLY, 0600);
    if (unnamed.isOpen())
        return fstat(unnamed.number(), &status) == 0 ? std::optional(toNanoseconds(status.st_ctim)) : std::nullopt;
    if (errno != EOPNOTSUPP && errno != EISDIR)
        return std::nullopt;
    const std::string name = folder + "/.clock-" + std::to_string(getpid());
    const Descriptor named(name, O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW, 0600);
    if (!named.isOpen())
        return std::nullopt;
    const bool isKnown = fstat(named.number(), &status) == 0;
    unlink(name.c_str());
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

/// Empty if there is none.
Rank getRank(const MetadataNode& xml) {
    const std::u16string& rank = xml.get(rankKey);
    return isRank(rank) ? rank : Rank();
}

}  // namespace

PathFiles::PathFiles(Path folder)
    : folder_(std::move(folder)),
      coreFile_(folder_ / project::metadata::coreFileName()),
      beginning_(findBeginning(folder_)) {}

const Path& PathFiles::walk(const MetadataPath& path) const {
    const auto& elements = path.getPath();
    std::size_t known = 0;
    while (known < walk_.size() && known < elements.size() && walk_[known].first == elements[known])
        ++known;
    walk_.erase(walk_.begin() + static_cast<std::ptrdiff_t>(known), walk_.end());
    for (; known < elements.size(); ++known) {
        const Path& above = walk_.empty() ? folder_ : walk_.back().second;
        walk_.emplace_back(elements[known], above / nodeFolderName(elements[known]));
    }
    return walk_.empty() ? folder_ : walk_.back().second;
}

Path PathFiles::getFile(const MetadataPath& path) const {
    return path.getPath().empty() ? coreFile_ : Path(walk(path).text() + extension);
}

Path PathFiles::getChildFolder(const MetadataPath& path) const {
    return walk(path);
}

PathFilePtr PathFiles::read(const Path& file) const {
    host::Interruption::throwIfRequested();
    const auto status = findStatus(file);
    if (!status) {
        cache_.erase(file.text());
        return nullptr;
    }
    const auto cached = cache_.find(file.text());
    if (cached != cache_.end() && cached->second->version == makeFileVersion(*status))
        return cached->second;
    const XmlFile xml = readXmlFile(file, *status);
    if (!xml.version)
        return nullptr;
    auto content = std::make_shared<const PathFile>(interpret(file, xml));
    if (!content->damage.empty())
        store_support::reportDamage({file, content->damage});
    cache_.insert_or_assign(file.text(), content);
    return content;
}

PathFile PathFiles::interpret(const Path& file, const XmlFile& xml) const {
    const bool isRoot = file == coreFile_;
    PathFile content;
    content.damage = xml.problem;
    try {
        if (xml.root) {
            PathFile read = fromXml(*xml.root, isRoot, file);
            if (!isRoot)
                requireName(file, nodeFileName(read.element));
            content = std::move(read);
        }
    } catch (const MetadataReadFailure& error) {
        content.damage = getReadProblem(error);
    }
    if (!content.damage.empty() && !isRoot)
        content.element = parseFileName(file).value_or(content.element);
    content.version = *xml.version;
    return content;
}

std::vector<PathFilePtr> PathFiles::readChildren(const Path& childFolder) const {
    std::vector<PathFilePtr> children;
    std::unordered_set<std::u16string> filesHere;
    std::vector<Path> foldersHere;
    for (const std::string& name : listNames(childFolder)) {
        Path entry = childFolder / Path::fromAccessName(name);
        if (isNodeFolder(entry))
            foldersHere.push_back(std::move(entry));
        else if (isNodeFile(entry)) {
            // Another process may have removed it since. A damaged one may not even tell which path it was.
            const PathFilePtr child = read(entry);
            if (child && entry.fileName().text() == nodeFileName(child->element))
                children.push_back(child);
            filesHere.insert(entry.text());
        }
    }
    for (const Path& folder : foldersHere) {
        const auto element = parseNodeFolderName(folder.fileName().text());
        if (element && filesHere.count(folder.text() + extension) == 0 && hasChildren(folder))
            children.push_back(std::make_shared<PathFile>(PathFile{*element, {}, nullptr, missing, {}}));
    }
    std::sort(children.begin(), children.end(), isBefore);
    return children;
}

Rank PathFiles::findLastRank(const Path& childFolder) const {
    const auto version = getFileVersion(childFolder);
    if (!version)
        return {};
    const auto known = lastRanks_.find(childFolder.text());
    if (known != lastRanks_.end() && known->second.version == *version)
        return known->second.rank;
    Rank last;
    for (const PathFilePtr& child : readChildren(childFolder))
        last = std::max(last, child->rank);
    lastRanks_.insert_or_assign(childFolder.text(), LastRank{*version, last});
    return last;
}

void PathFiles::noteLastRank(const Path& childFolder, const Rank& rank) {
    if (const auto version = getFileVersion(childFolder))
        lastRanks_.insert_or_assign(childFolder.text(), LastRank{*version, rank});
}

bool PathFiles::hasChildren(const Path& childFolder) const {
    return isFolder(childFolder) && !list(childFolder).empty();
}

std::vector<Path> PathFiles::list(const Path& childFolder) const {
    std::vector<Path> files;
    std::vector<Path> folders{childFolder};
    while (!folders.empty()) {
        const Path folder = std::move(folders.back());
        folders.pop_back();
        for (const std::string& name : listNames(folder)) {
            Path entry = folder / Path::fromAccessName(name);
            if (isNodeFile(entry))
                files.push_back(std::move(entry));
            else if (isNodeFolder(entry) && isFolder(entry))
                folders.push_back(std::move(entry));
        }
    }
    return files;
}

std::vector<MetadataDamage> PathFiles::findDamage() const {
    std::map<Path, MetadataDamage> damage;
    std::vector<Path> files = list(folder_);
    if (!files.empty() && !getFileVersion(coreFile_))
        damage[coreFile_] = {coreFile_, missing};
    for (const Path& file : files) {
        // Every folder on the way must have its file.
        for (Path folder = project::metadata::getParentFolder(file); folder != folder_;
             folder = project::metadata::getParentFolder(folder)) {
            const Path parent(folder.text() + extension);
            if (getFileVersion(parent))
                continue;
            // A name that was cut does not tell the path.
            const bool isKnown = parseNodeFolderName(folder.fileName().text()).has_value();
            if (!damage.emplace(parent, MetadataDamage{parent, missing, isKnown}).second)
                break;
        }
    }
    files.push_back(coreFile_);
    for (const Path& file : files) {
        try {
            const PathFilePtr content = read(file);
            if (content && !content->damage.empty())
                damage[file] = {file, content->damage};
        } catch (const MetadataReadFailure& error) {
            damage[file] = {file, getReadProblem(error)};
        }
    }
    if (const auto journal = store_support::findJournalDamage(folder_))
        damage[journal->file] = *journal;
    std::vector<MetadataDamage> result;
    result.reserve(damage.size());
    for (auto& [file, found] : damage)
        result.push_back(std::move(found));
    return result;
}

void PathFiles::markSeen(const FileVersion& version) {
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

bool isCoreFile(const MetadataNode& root) {
    return root.getName() == projectElementName && root.get(project::metadata::metadataTypeKey()) == fixedPathName;
}

bool isPathFile(const MetadataNode& root) {
    return isCoreFile(root) || root.getName() == pathElementName;
}

PathFile fromXml(const MetadataNode& xml, bool isRoot, const Path& file) {
    PathFile content;
    if (!isRoot) {
        content.element = getPathElement(xml, file);
        content.rank = getRank(xml);
        content.damage = content.rank.empty() ? u"its " + rankKey + u" is missing or invalid" : u"";
    }
    content.node = store_support::getNode(xml, file);
    return content;
}

std::unique_ptr<MetadataNode> toXml(const PathFile& content, bool isRoot) {
    auto xml = std::make_unique<MetadataNodeSpecification>(isRoot ? projectElementName : pathElementName);
    if (isRoot) {
        xml->put(project::metadata::metadataTypeKey(), fixedPathName);
    } else {
        putPathElement(*xml, content.element);
        xml->put(rankKey, content.rank);
    }
    putNode(*xml, content.node.get());
    return xml;
}

}  // namespace stores::fixed_path
