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

#include <algorithm>
#include <optional>
#include <utility>

#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataDamage;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using project::metadata::stripExtension;
using store_support::Descriptor;
using store_support::findStatus;
using store_support::FolderEntry;
using store_support::getFolderVersion;
using store_support::getReadProblem;
using store_support::isFolder;
using store_support::listEntries;
using store_support::listNames;
using store_support::makeFileVersion;
using store_support::readXmlFile;
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

/// Whether `file`, which is in a folder, has the name `name`. Asked for every file, this makes no texts.
bool isNamed(const Path& file, const std::u16string& name) {
    return project::metadata::ends_with(file.text(), name) && file.text()[file.text().size() - name.size() - 1] == u'/';
}

void requireName(const Path& file, const std::u16string& name) {
    if (!isNamed(file, name)) {
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
      walk_{{noElement, coreFile_, coreFile_.accessName(), folder_, folder_.accessName()}},
      seen_(folder_) {}

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

PathFilePtr PathFiles::readEntry(const Path& file, const Descriptor& folder, const FolderEntry& entry) const {
    // Of what is known, a look tells whether it is still true; what is not is read without one.
    const bool isNew = entry.isRegular && !cache_.hasInode(entry.inode);
    const auto xml = isNew ? store_support::readSmallFile(entry.name, folder.number()) : std::nullopt;
    if (!xml)
        return read(file, Extent::place);
    host::Interruption::throwIfRequested();
    PathFilePtr content = note(file, *xml);
    if (readings_ > 0)
        cache_.insertAhead(file, content);
    else
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
    // Who knows what it said knows it still if it says the same, with new permissions or a further name.
    const auto before = cache_.findAnyVersion(file, content->version.inode);
    if (before && before->version != content->version && before->hasNode == content->hasNode &&
        store_support::equalTrees(before->node.get(), content->node.get()) && seen_.isKnown(file, before->version)) {
        seen_.add(file, content->version);
    }
    return content;
}

PathFile PathFiles::interpret(const Path& file, const XmlFile& xml) const {
    const bool isRoot = file.text() == coreFile_.text();
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
    std::vector<std::pair<Path, FolderEntry>> files;
    for (FolderEntry& entry : listEntries(childFolder)) {
        Path file = childFolder / Path::fromAccessName(entry.name);
        if (isNodeFile(file))
            files.emplace_back(std::move(file), std::move(entry));
        else if (isNodeFolder(file))
            folder.folders.emplace(file.fileName().text(), false);
    }
    folder.listing.children.reserve(files.size());
    folder.hasFiles = !files.empty();
    const Descriptor open(childFolder.accessName(), O_PATH | O_DIRECTORY);
    for (const auto& [file, entry] : files) {
        const auto below = folder.folders.empty()
                               ? folder.folders.end()
                               : folder.folders.find(stripExtension(file.fileName().text(), nodeFileExtension));
        const bool hasFolder = below != folder.folders.end();
        if (hasFolder)
            below->second = true;
        try {
            const PathFilePtr content = readEntry(file, open, entry);
            // Another process may have removed it since. A damaged one may not even tell which path it was.
            if (content && (!content->damage || file.fileName().text() == nodeFileName(content->element)))
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
    if (--readings_ > 0)
        return;
    listings_.clear();
    cache_.endReading();
}

void PathFiles::lookAgain() noexcept {
    listings_.clear();
    seen_.lookAgain();
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
    auto listing = recallListing(childFolder);
    if (listing)
        sort(*listing);
    return listing;
}

Rank PathFiles::findLastRank(const Path& childFolder) const {
    const auto version = getFolderVersion(childFolder);
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
    if (const auto version = getFolderVersion(childFolder))
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
            if (!content->damage && !hasFolder)
                continue;
            const Path below = childFolder / Path(nodeFolderName(content->element));
            const Path file(below.text() + nodeFileExtension);
            if (content->damage)
                damages[file] = describe(file, *content->damage);
            if (hasFolder && isFolder(below))
                findDamage(below, damages);
        }
        return !known->children.empty();
    }
    const auto version = readings_ > 0 ? getFolderVersion(childFolder) : std::nullopt;
    const Folder folder = readFolder(childFolder, &damages);
    if (version && folder.listing.isAll && !isInterrupted() && getFolderVersion(childFolder) == version)
        remember(childFolder, folder.listing);
    bool hasPaths = folder.hasFiles;
    for (const auto& [name, hasFile] : folder.folders) {
        const Path below = childFolder / Path(name);
        const auto status = store_support::findStatus(below);
        if (status && S_ISLNK(status->st_mode))
            damages[below] = {below, u"it is a symbolic link, through which nothing is changed", false, true};
        if (!status || !S_ISDIR(status->st_mode) || !findDamage(below, damages))
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
    for (auto& [file, found] : damages)
        found.path = findPath(file);
    if (const auto journal = store_support::findJournalDamage(folder_))
        damages[journal->file] = *journal;
    std::vector<MetadataDamage> result;
    result.reserve(damages.size());
    for (auto& [file, found] : damages)
        result.push_back(std::move(found));
    return result;
}

MetadataPath PathFiles::findPath(const Path& entry) const {
    std::vector<Path> folders;  // from the path itself up
    for (Path folder(stripExtension(entry.text(), nodeFileExtension)); entry != coreFile_ && folder != folder_;
         folder = folder.parentPath()) {
        folders.push_back(folder);
    }
    std::vector<PathElement> steps;
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        auto element = parseNodeFolderName(folder->fileName().text());
        try {
            // A name that was cut does not tell the path, but a sound file does.
            const PathFilePtr content =
                element ? nullptr : read(Path(folder->text() + nodeFileExtension), Extent::place);
            if (content && !content->isBroken())
                element = content->element;
        } catch (const MetadataReadFailure&) {
            // It does not.
        }
        if (!element)
            break;
        steps.push_back(*std::move(element));
    }
    return MetadataPath(std::move(steps));
}

bool PathFiles::hasLossIn(const Path& entry) const {
    if (entry == coreFile_ || isNodeFile(entry)) {
        if (const PathFilePtr content = read(entry, Extent::place))
            return content->damage != nullptr;
        const Path below(stripExtension(entry.text(), nodeFileExtension));
        return !parseFileName(entry) && hasChildren(below);
    }
    if (!isNodeFolder(entry) || !isFolder(entry))
        return false;
    Damages damages;
    const bool hasPaths = findDamage(entry, damages);
    const bool isNamed =
        parseNodeFolderName(entry.fileName().text()) || findStatus(Path(entry.text() + nodeFileExtension)).has_value();
    return (hasPaths && !isNamed) ||
           std::any_of(damages.begin(), damages.end(), [](const auto& damage) { return !damage.second.readsAsBranch; });
}

void PathFiles::noteWritten(const Path& file, PathFile content) {
    cache_.insert(file, std::make_shared<const PathFile>(std::move(content)));
}

}  // namespace stores::fixed_path
