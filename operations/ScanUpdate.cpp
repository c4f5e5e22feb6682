#include "operations/ScanUpdate.hpp"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "operations/MovedFiles.hpp"
#include "operations/ScannedNode.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "project/metadata/RepeatableRead.hpp"

namespace operations {

namespace {

using Scan = std::vector<ScannedFile>;

/// What becomes of a path that has no file any more.
struct Fate {
    std::size_t target = nowhere;  // the file that it stands for now
    bool isUnseen = false;         // it is in a folder that has moved and cannot be read
    bool isPruned = false;         // it goes, whatever is there
    bool isKept = false;           // it stays, though there is no file for it
    pm::MetadataPath newPath;      // if it is kept or has a target
};

class ScanComparison {
public:
    ScanComparison(const pm::MetadataManager& store, const Scan& scan, const ScanWish& wish, ScanRecord& record,
                   Progress& progress)
        : store_(store),
          files_(dynamic_cast<const pm::PathFileLister*>(&store)),
          reading_(store),
          scan_(scan),
          wish_(wish),
          record_(record),
          progress_(progress),
          paths_(scan.size()),
          isKnown_(scan.size()),
          folders_(scan.size()),
          sources_(scan.size(), nowhere) {}

    ScanChange run() {
        walk();
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            if (!isKnown_[i])
                paths_[i] = childPath(paths_[scan_[i].parent], pm::PathElement(scannedTypeOf(scan_[i]), scan_[i].name));
        }
        if (!gone_.empty()) {
            findTargets();
            decide();
        }
        describeFiles();
        changeGone();
        takeFingerprints();
        if (!result_.change.added.empty() || !result_.change.removed.empty() || !result_.moved.empty()) {
            result_.change.paths.emplace();
            arrangeFolder({}, 0);
        }
        return std::move(result_);
    }

private:
    /// Finds out which elements of the scan have a path, and which paths have no file.
    void walk() {
        isKnown_[0] = true;
        std::deque<std::size_t> folders{0};
        for (; !folders.empty(); folders.pop_front()) {
            const std::size_t folder = folders.front();
            if (isAsBefore(folder)) {
                enterKnown(folder, folders);
                continue;
            }
            for (pm::MetadataPath& child : store_.getChildren(paths_[folder])) {
                progress_.advance();
                const pm::PathElement& leaf = child.getPath().back();
                if (!isScannedType(leaf.getType()))
                    continue;
                const std::size_t index = findChild(scan_, folder, leaf);
                if (index == nowhere) {
                    if (scan_[folder].isComplete) {
                        addGone(std::move(child), nowhere);
                        folders_[folder].hasWork = true;
                    }
                    continue;
                }
                isKnown_[index] = true;
                paths_[index] = std::move(child);
                if (scan_[index].kind == FileKind::folder && !scan_[index].isLeftOut)
                    folders.push_back(index);
            }
        }
    }

    /// Of the files in `folder` all that decides what is to be said of them, and `metadata`, the fingerprint of what is
    /// said; empty if that is.
    std::string makeFingerprint(std::size_t folder, const std::string& metadata) const {
        if (metadata.empty())
            return {};
        std::string bytes = metadata + (wish_.withTimes ? 't' : '-');
        const auto put = [&](const auto& number) {
            bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
        };
        for (std::size_t i = scan_[folder].firstChild; i < scan_[folder].firstChild + scan_[folder].childCount; ++i) {
            const ScannedFile& file = scan_[i];
            put(file.name.size());
            bytes.append(reinterpret_cast<const char*>(file.name.data()), file.name.size() * sizeof(char16_t));
            put(file.kind);
            put(file.isLeftOut);
            if (file.kind == FileKind::file)
                put(file.trace.size);
            if (wish_.withTimes) {
                put(file.trace.modified.first);
                put(file.trace.modified.second);
            }
        }
        return bytes;
    }

    /// Whether there is nothing to do in `folder`, since there was not, and neither its files nor what is said of them
    /// have changed.
    bool isAsBefore(std::size_t folder) {
        if (!files_ || !scan_[folder].isComplete)
            return false;
        const std::string& before = record_.findFingerprint(paths_[folder]);
        if (before.empty() || before != makeFingerprint(folder, files_->getFingerprint(paths_[folder])))
            return false;
        folders_[folder].isAsBefore = true;
        return true;
    }

    /// Notes what `walk` would find in a folder in which there is nothing to do.
    void enterKnown(std::size_t folder, std::deque<std::size_t>& folders) {
        for (std::size_t i = scan_[folder].firstChild; i < scan_[folder].firstChild + scan_[folder].childCount; ++i) {
            progress_.advance();
            if (scan_[i].isLeftOut)
                continue;
            isKnown_[i] = true;
            paths_[i] = childPath(paths_[folder], pm::PathElement(scannedTypeOf(scan_[i]), scan_[i].name));
            if (scan_[i].kind == FileKind::folder)
                folders.push_back(i);
        }
    }

    /// Of the folders in which there is nothing to do.
    void takeFingerprints() {
        for (std::size_t i = 0; files_ && i < scan_.size(); ++i) {
            const bool isFolder = scan_[i].kind == FileKind::folder && !scan_[i].isLeftOut && isKnown_[i];
            if (!isFolder || !scan_[i].isComplete || folders_[i].hasWork)
                continue;
            std::string fingerprint = folders_[i].isAsBefore
                                          ? record_.findFingerprint(paths_[i])
                                          : makeFingerprint(i, files_->getFingerprintOfRead(paths_[i]));
            if (!fingerprint.empty())
                result_.fingerprints.emplace_back(paths_[i], std::move(fingerprint));
        }
    }

    /// Adds `path` and all below it, each before those below it.
    void addGone(pm::MetadataPath path, std::size_t parent) {
        progress_.advance();
        const std::size_t index = gone_.size();
        goneByPath_.emplace(path, index);
        GonePath& gone = gone_.emplace_back();
        const std::u16string& type = path.getPath().back().getType();
        const bool isInFolder = parent == nowhere || (gone_[parent].isFile && gone_[parent].isFolder());
        gone.isFile = isInFolder && isScannedType(type);
        gone.node = store_.getNode(path);
        gone.isScanned = gone.isFile && gone.node && isScannedNode(*gone.node);
        gone.path = path;
        gone.parent = parent;
        if (parent != nowhere)
            gone_[parent].children.push_back(index);
        for (pm::MetadataPath& child : store_.getChildren(path))
            addGone(std::move(child), index);
    }

    void findTargets() {
        std::vector<bool> isNew(scan_.size());
        for (std::size_t i = 1; i < scan_.size(); ++i)
            isNew[i] = !isKnown_[i] && !scan_[i].isLeftOut;
        const std::vector<std::size_t> targets = findMovedFiles(gone_, scan_, std::move(isNew), record_);
        fates_.resize(gone_.size());
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            fates_[i].target = targets[i];
            if (targets[i] != nowhere)
                sources_[targets[i]] = i;
        }
    }

    /// Decides on what has no file any more.
    void decide() {
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            Fate& fate = fates_[i];
            const Fate* const parent = gone_[i].parent == nowhere ? nullptr : &fates_[gone_[i].parent];
            fate.isUnseen =
                parent && (parent->target == nowhere ? parent->isUnseen : !scan_[parent->target].isComplete);
            fate.isPruned = wish_.prune && fate.target == nowhere && !fate.isUnseen &&
                            (gone_[i].isFile || (parent && parent->isPruned));
        }
        for (std::size_t i = gone_.size(); i-- > 0;) {
            Fate& fate = fates_[i];
            const bool isAbove = std::any_of(gone_[i].children.begin(), gone_[i].children.end(),
                                             [&](std::size_t child) { return fates_[child].isKept; });
            fate.isKept = fate.target == nowhere && !fate.isPruned && (fate.isUnseen || !gone_[i].isScanned || isAbove);
        }
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            const GonePath& gone = gone_[i];
            Fate& fate = fates_[i];
            fate.newPath = gone.path;
            if (fate.target != nowhere) {
                fate.newPath = paths_[fate.target];
            } else if (gone.parent != nowhere && fate.isKept) {
                // Where the place is taken, by a file that was found to be another one, it stays.
                const Fate& parent = fates_[gone.parent];
                const pm::PathElement step = gone.path.getPath().back();
                const bool isTaken = parent.target != nowhere && findChild(scan_, parent.target, step) != nowhere &&
                                     !scan_[findChild(scan_, parent.target, step)].isLeftOut;
                if (!isTaken)
                    fate.newPath = childPath(parent.newPath, step);
            }
        }
    }

    void describeFiles() {
        StoreChange& change = result_.change;
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            progress_.advance();
            const ScannedFile& file = scan_[i];
            if (file.isLeftOut)
                continue;
            result_.traces.emplace_back(paths_[i], file.trace);
            if (folders_[file.parent].isAsBefore || (isKnown_[i] && file.isOnTheWay))
                continue;
            std::shared_ptr<pm::MetadataNode> before = sources_[i] != nowhere ? gone_[sources_[i]].node
                                                       : isKnown_[i]          ? store_.getNode(paths_[i])
                                                                              : nullptr;
            std::shared_ptr<pm::MetadataNode> node = describe(file, before.get(), wish_.withTimes);
            if (node || !isKnown_[i])
                folders_[file.parent].hasWork = true;
            if (sources_[i] != nowhere)
                result_.moved.emplace_back(gone_[sources_[i]].path, paths_[i]);
            else if (node)
                (isKnown_[i] ? change.updated : change.added).push_back(paths_[i]);
            if (node || sources_[i] != nowhere)
                change.nodes.emplace_back(paths_[i], node ? node : before);
        }
    }

    void changeGone() {
        StoreChange& change = result_.change;
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            const GonePath& gone = gone_[i];
            const Fate& fate = fates_[i];
            if (fate.target != nowhere)
                continue;
            if (!fate.isKept) {
                change.removed.push_back(gone.path);
                continue;
            }
            const bool isMoved = fate.newPath != gone.path;
            const bool isMissing = gone.isFile && !fate.isUnseen;
            const bool isMarked = isMissing && !isMarkedMissing(gone.node.get());
            if (isMoved)
                result_.moved.emplace_back(gone.path, fate.newPath);
            else if (isMarked)
                change.updated.push_back(gone.path);
            if (isMissing)
                result_.missing.push_back(fate.newPath);
            if (gone.isFile) {
                if (const auto trace = record_.find(gone.path))
                    result_.traces.emplace_back(fate.newPath, *trace);
            }
            std::shared_ptr<pm::MetadataNode> node = gone.node;
            if (isMarked)
                node = markMissing(node.get());
            if (node && (isMoved || isMarked))
                change.nodes.emplace_back(fate.newPath, std::move(node));
        }
    }

    // The order of everything.

    void addPath(const pm::MetadataPath& path) { result_.change.paths->push_back(path); }

    /// What the scan did not look into, as it is.
    void arrangeOther(const pm::MetadataPath& path) {
        progress_.advance();
        addPath(path);
        for (const pm::MetadataPath& child : store_.getChildren(path))
            arrangeOther(child);
    }

    /// What has no file, below its new path.
    void arrangeKept(std::size_t gone) {
        addPath(fates_[gone].newPath);
        arrangeKeptBelow(gone);
    }

    void arrangeKeptBelow(std::size_t gone) {
        for (const std::size_t child : gone_[gone].children) {
            if (fates_[child].isKept)
                arrangeKept(child);
        }
    }

    /// A file or folder that the scan has found, at `path`.
    void arrange(std::size_t index) {
        const pm::MetadataPath& path = paths_[index];
        const bool isKnownFile = isKnown_[index] && scan_[index].kind != FileKind::folder;
        if (scan_[index].isLeftOut || isKnownFile)
            arrangeOther(path);
        else
            arrangeFolder(path, index);
    }

    void arrangeFolder(const pm::MetadataPath& path, std::size_t index) {
        progress_.advance();
        addPath(path);
        struct Place {
            pm::MetadataPath path;
            std::size_t file;
        };
        // Those that have a place, then the new ones between them.
        std::vector<Place> places;
        if (isKnown_[index]) {
            for (pm::MetadataPath& child : store_.getChildren(path)) {
                const pm::PathElement& leaf = child.getPath().back();
                const std::size_t file = isScannedType(leaf.getType()) ? findChild(scan_, index, leaf) : nowhere;
                const auto gone = goneByPath_.find(child);
                if (gone == goneByPath_.end() || fates_[gone->second].isKept)
                    places.push_back({std::move(child), file});
            }
        }
        std::size_t next = scan_[index].firstChild;
        const std::size_t end = next + scan_[index].childCount;
        const auto arrangeNew = [&](const std::u16string* before) {
            for (; next < end && (!before || scan_[next].name < *before); ++next) {
                if (!isKnown_[next] && !scan_[next].isLeftOut)
                    arrange(next);
            }
        };
        const auto isFile = [&](const Place& place) { return isScannedType(place.path.getPath().back().getType()); };
        const auto lastFile = std::find_if(places.rbegin(), places.rend(), isFile).base();
        for (auto place = places.begin(); place != lastFile; ++place) {
            if (isFile(*place))
                arrangeNew(&place->path.getPath().back().getLocation());
            arrangePlace(place->path, place->file);
        }
        arrangeNew(nullptr);
        for (auto place = lastFile; place != places.end(); ++place)
            arrangePlace(place->path, place->file);
        if (sources_[index] != nowhere)
            arrangeKeptBelow(sources_[index]);
    }

    void arrangePlace(const pm::MetadataPath& path, std::size_t file) {
        const auto gone = goneByPath_.find(path);
        if (file != nowhere)
            arrange(file);
        else if (gone != goneByPath_.end())
            arrangeKept(gone->second);
        else
            arrangeOther(path);
    }

    struct FolderState {
        bool isAsBefore = false;  // the last scan found nothing to do, and nothing has changed
        bool hasWork = false;     // there is something to do
    };

    const pm::MetadataManager& store_;
    const pm::PathFileLister* const files_;  // null for a store that is none
    pm::RepeatableRead reading_;
    const Scan& scan_;
    const ScanWish& wish_;
    ScanRecord& record_;
    Progress& progress_;
    std::vector<pm::MetadataPath> paths_;  // of every element of the scan
    std::vector<bool> isKnown_;            // whether it is in the store
    std::vector<FolderState> folders_;     // meaningless for files
    std::vector<std::size_t> sources_;     // what has moved there
    std::vector<GonePath> gone_;
    std::vector<Fate> fates_;  // of each of `gone_`
    std::map<pm::MetadataPath, std::size_t, BySteps> goneByPath_;
    ScanChange result_;
};

}  // namespace

ScanChange findScanChange(const pm::MetadataManager& store, const Scan& scan, const ScanWish& wish, ScanRecord& record,
                          Progress& progress) {
    return ScanComparison(store, scan, wish, record, progress).run();
}

}  // namespace operations
