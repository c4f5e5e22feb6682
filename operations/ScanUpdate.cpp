#include "operations/ScanUpdate.hpp"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "operations/ScannedNode.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "project/metadata/RepeatableRead.hpp"

namespace operations {

namespace {

using Scan = std::vector<ScannedFile>;

constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

/// The element of `scan` that `step` leads to from the folder `folder`; `nowhere` if there is none.
std::size_t findChild(const Scan& scan, std::size_t folder, const pm::PathElement& step) {
    const auto first = scan.begin() + static_cast<std::ptrdiff_t>(scan[folder].firstChild);
    const auto last = first + static_cast<std::ptrdiff_t>(scan[folder].childCount);
    const auto found =
        std::lower_bound(first, last, step.getLocation(),
                         [](const ScannedFile& file, const std::u16string& name) { return file.name < name; });
    if (found == last || found->name != step.getLocation() || scannedTypeOf(*found) != step.getType())
        return nowhere;
    return static_cast<std::size_t>(found - scan.begin());
}

/// A path that is in a scanned folder, and not on disk, or that lies below such a one.
struct Gone {
    pm::MetadataPath path;
    std::shared_ptr<pm::MetadataNode> node;  // null for a branch
    std::size_t parent = nowhere;            // `nowhere` for one whose parent is still there
    bool isFile = false;                     // of a file or folder: all others belong to somebody else
    bool isScanned = false;                  // a scan has written all of it

    // What becomes of it.
    std::size_t target = nowhere;  // the file that it stands for now
    bool isUnseen = false;         // it is in a folder that has moved and cannot be read
    bool isPruned = false;         // it goes, whatever is there
    bool isKept = false;           // it stays, though there is no file for it
    pm::MetadataPath newPath;      // if it is kept or has a target
    std::vector<std::size_t> children;
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
        Gone& gone = gone_.emplace_back();
        const std::u16string& type = path.getPath().back().getType();
        const bool isInFolder = parent == nowhere || (gone_[parent].isFile && isFolder(gone_[parent].path));
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

    static bool isFolder(const pm::MetadataPath& path) { return path.getPath().back().getType() == scannedFolderType; }

    /// Whether `index` is a file that has been described by no path so far.
    bool isNew(std::size_t index) const {
        return !isKnown_[index] && !scan_[index].isLeftOut && sources_[index] == nowhere;
    }

    void setTarget(std::size_t gone, std::size_t file) {
        gone_[gone].target = file;
        sources_[file] = gone;
    }

    void findTargets() {
        std::vector<std::optional<FileTrace>> traces(gone_.size());
        std::transform(gone_.begin(), gone_.end(), traces.begin(),
                       [&](const Gone& gone) { return gone.isFile ? record_.find(gone.path) : std::nullopt; });
        findByIdentity(traces);
        findByTime(traces);
        // What has moved with its folder.
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            const std::size_t above = gone_[i].parent == nowhere ? nowhere : gone_[gone_[i].parent].target;
            if (above == nowhere || !gone_[i].isFile || gone_[i].target != nowhere)
                continue;
            const std::size_t file = findChild(scan_, above, gone_[i].path.getPath().back());
            if (file != nowhere && isNew(file))
                setTarget(i, file);
        }
    }

    void findByIdentity(const std::vector<std::optional<FileTrace>>& traces) {
        std::multimap<FileIdentity, std::size_t> files;
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            if (isNew(i))
                files.emplace(scan_[i].trace.identity, i);
        }
        std::map<std::size_t, std::vector<std::size_t>> claims;  // by file
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            if (!traces[i])
                continue;
            const auto [first, last] = files.equal_range(traces[i]->identity);
            std::vector<std::size_t> same;
            for (auto file = first; file != last; ++file) {
                if (isSame(gone_[i], *traces[i], scan_[file->second]))
                    same.push_back(file->second);
            }
            if (const std::size_t file = chooseByName(same, [&](std::size_t each) { return hasName(i, each); });
                file != nowhere)
                claims[file].push_back(i);
        }
        for (const auto& [file, sources] : claims) {
            const std::size_t each = file;
            if (const std::size_t source = chooseByName(sources, [&](std::size_t gone) { return hasName(gone, each); });
                source != nowhere)
                setTarget(source, file);
        }
    }

    /// The only one of `candidates`; of several, links to one file, the only one for which `hasName` holds.
    template <class HasName>
    static std::size_t chooseByName(const std::vector<std::size_t>& candidates, const HasName& hasName) {
        if (candidates.size() == 1)
            return candidates.front();
        const auto first = std::find_if(candidates.begin(), candidates.end(), hasName);
        const bool isOnly = first != candidates.end() && std::none_of(first + 1, candidates.end(), hasName);
        return isOnly ? *first : nowhere;
    }

    bool hasName(std::size_t gone, std::size_t file) const {
        return gone_[gone].path.getPath().back().getLocation() == scan_[file].name;
    }

    static bool isSame(const Gone& gone, const FileTrace& before, const ScannedFile& file) {
        const FileTrace& now = file.trace;
        if (gone.path.getPath().back().getType() != scannedTypeOf(file) || !(before.identity == now.identity))
            return false;
        if (before.born != Instant() || now.born != Instant())
            return before.born == now.born;
        return before.modified == now.modified && (isFolder(gone.path) || before.size == now.size);
    }

    void findByTime(const std::vector<std::optional<FileTrace>>& traces) {
        using Look = std::tuple<std::u16string, std::uint64_t, std::u16string>;  // name, size, time
        std::map<Look, std::pair<std::vector<std::size_t>, std::vector<std::size_t>>> pairs;
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            const Gone& gone = gone_[i];
            if (gone.target != nowhere || !gone.isFile || isFolder(gone.path))
                continue;
            Description known;
            if (traces[i])
                known = {traces[i]->size, formatTime(traces[i]->modified)};
            else if (gone.node)
                known = getDescription(*gone.node);
            if (known.size != 0 && !known.time.empty())
                pairs[{gone.path.getPath().back().getLocation(), known.size, known.time}].first.push_back(i);
        }
        if (pairs.empty())
            return;
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            if (!isNew(i) || scan_[i].kind != FileKind::file)
                continue;
            const auto found = pairs.find({scan_[i].name, scan_[i].trace.size, formatTime(scan_[i].trace.modified)});
            if (found != pairs.end())
                found->second.second.push_back(i);
        }
        for (const auto& [look, pair] : pairs) {
            if (pair.first.size() == 1 && pair.second.size() == 1)
                setTarget(pair.first.front(), pair.second.front());
        }
    }

    /// Decides on what has no file any more.
    void decide() {
        for (Gone& gone : gone_) {
            const Gone* const parent = gone.parent == nowhere ? nullptr : &gone_[gone.parent];
            gone.isUnseen =
                parent && (parent->target == nowhere ? parent->isUnseen : !scan_[parent->target].isComplete);
            gone.isPruned = wish_.prune && gone.target == nowhere && !gone.isUnseen &&
                            (gone.isFile || (parent && parent->isPruned));
        }
        for (std::size_t i = gone_.size(); i-- > 0;) {
            Gone& gone = gone_[i];
            const bool isAbove = std::any_of(gone.children.begin(), gone.children.end(),
                                             [&](std::size_t child) { return gone_[child].isKept; });
            gone.isKept = gone.target == nowhere && !gone.isPruned && (gone.isUnseen || !gone.isScanned || isAbove);
        }
        for (Gone& gone : gone_) {
            gone.newPath = gone.path;
            if (gone.target != nowhere) {
                gone.newPath = paths_[gone.target];
            } else if (gone.parent != nowhere && gone.isKept) {
                // Where the place is taken, by a file that was found to be another one, it stays.
                const Gone& parent = gone_[gone.parent];
                const pm::PathElement step = gone.path.getPath().back();
                const bool isTaken = parent.target != nowhere && findChild(scan_, parent.target, step) != nowhere &&
                                     !scan_[findChild(scan_, parent.target, step)].isLeftOut;
                if (!isTaken)
                    gone.newPath = childPath(parent.newPath, step);
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
        for (const Gone& gone : gone_) {
            if (gone.target != nowhere)
                continue;
            if (!gone.isKept) {
                change.removed.push_back(gone.path);
                continue;
            }
            const bool isMoved = gone.newPath != gone.path;
            const bool isMissing = gone.isFile && !gone.isUnseen;
            const bool isMarked = isMissing && !isMarkedMissing(gone.node.get());
            if (isMoved)
                result_.moved.emplace_back(gone.path, gone.newPath);
            else if (isMarked)
                change.updated.push_back(gone.path);
            if (isMissing)
                result_.missing.push_back(gone.newPath);
            if (gone.isFile) {
                if (const auto trace = record_.find(gone.path))
                    result_.traces.emplace_back(gone.newPath, *trace);
            }
            std::shared_ptr<pm::MetadataNode> node = gone.node;
            if (isMarked)
                node = markMissing(node.get());
            if (node && (isMoved || isMarked))
                change.nodes.emplace_back(gone.newPath, std::move(node));
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
    void arrangeKept(const Gone& gone) {
        addPath(gone.newPath);
        for (const std::size_t child : gone.children) {
            if (gone_[child].isKept)
                arrangeKept(gone_[child]);
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
                if (gone == goneByPath_.end() || gone_[gone->second].isKept)
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
        if (sources_[index] != nowhere) {
            for (const std::size_t child : gone_[sources_[index]].children) {
                if (gone_[child].isKept)
                    arrangeKept(gone_[child]);
            }
        }
    }

    void arrangePlace(const pm::MetadataPath& path, std::size_t file) {
        const auto gone = goneByPath_.find(path);
        if (file != nowhere)
            arrange(file);
        else if (gone != goneByPath_.end())
            arrangeKept(gone_[gone->second]);
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
    std::vector<Gone> gone_;
    std::map<pm::MetadataPath, std::size_t, BySteps> goneByPath_;
    ScanChange result_;
};

}  // namespace

ScanChange findScanChange(const pm::MetadataManager& store, const Scan& scan, const ScanWish& wish, ScanRecord& record,
                          Progress& progress) {
    return ScanComparison(store, scan, wish, record, progress).run();
}

}  // namespace operations
