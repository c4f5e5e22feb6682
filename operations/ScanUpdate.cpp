#include "operations/ScanUpdate.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "host/Text.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/NodeMerge.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace operations {

namespace {

namespace pm = project::metadata;

using Scan = std::vector<ScannedFile>;

const std::u16string folderType = u"Folder";
const std::u16string fileType = u"File";
const std::u16string missingKey = u"Missing";

constexpr std::size_t none = static_cast<std::size_t>(-1);

const std::u16string& typeOf(const ScannedFile& file) {
    return file.kind == FileKind::folder ? folderType : fileType;
}

bool isScannedType(const std::u16string& type) {
    return type == folderType || type == fileType;
}

/// The element of `scan` that `step` leads to from the folder `folder`; none if there is none.
std::size_t findChild(const Scan& scan, std::size_t folder, const pm::PathElement& step) {
    const auto first = scan.begin() + static_cast<std::ptrdiff_t>(scan[folder].firstChild);
    const auto last = first + static_cast<std::ptrdiff_t>(scan[folder].childCount);
    const auto found =
        std::lower_bound(first, last, step.getLocation(),
                         [](const ScannedFile& file, const std::u16string& name) { return file.name < name; });
    if (found == last || found->name != step.getLocation() || typeOf(*found) != step.getType())
        return none;
    return static_cast<std::size_t>(found - scan.begin());
}

// What a scan writes.

constexpr std::array<const char16_t*, 4> kindNames{u"file", u"folder", u"symlink", u"other"};

struct OwnKey {
    std::u16string key;
    bool (*isWritten)(const std::u16string& value);  // whether a scan could have written that
};

const std::array<OwnKey, 4>& ownKeys() {
    static const auto& keys = *new std::array<OwnKey, 4>{
        {{u"Kind",
          [](const std::u16string& value) {
              return std::find(kindNames.begin(), kindNames.end(), value) != kindNames.end();
          }},
         {missingKey, [](const std::u16string& value) { return value == u"true"; }},
         {u"ModificationTime", isTime},
         {u"Size", [](const std::u16string& value) {
              return !value.empty() && value.find_first_not_of(u"0123456789") == std::u16string::npos;
          }}}};
    return keys;
}

const OwnKey* findOwnKey(const std::u16string& key) {
    const auto found =
        std::find_if(ownKeys().begin(), ownKeys().end(), [&](const OwnKey& own) { return own.key == key; });
    return found == ownKeys().end() ? nullptr : &*found;
}

/// Whether all of `node` was written by a scan.
bool isScanned(const pm::MetadataNode& node) {
    const std::vector<std::u16string> keys = node.getAttributeKeys();
    return node.getName() == pm::getDefaultMetadataNodeName() && node.getChildNodes().empty() &&
           std::binary_search(keys.begin(), keys.end(), u"Kind") &&
           std::all_of(keys.begin(), keys.end(), [&](const std::u16string& key) {
               const OwnKey* const own = findOwnKey(key);
               return own && own->isWritten(node.get(key));
           });
}

/// A mark of a conflict about what the scan knows better than both sides.
bool isSettledByScan(const pm::MetadataNode& node) {
    return node.getName() == conflictName && node.get(u"What") == u"attribute" && findOwnKey(node.get(u"Key"));
}

/// `before` with what a scan says of `file` in place of what an earlier one has said; null if that is the same.
std::shared_ptr<pm::MetadataNode> describe(const ScannedFile& file, const pm::MetadataNode& before, bool withTimes) {
    AttributeChanges changes;
    const auto want = [&](const std::u16string& key, const std::u16string& value) {
        const std::u16string& now = before.get(key);
        if (!value.empty() ? now != value : (!now.empty() && findOwnKey(key)->isWritten(now)))
            changes[key] = value.empty() ? std::nullopt : std::optional(value);
    };
    want(u"Kind", kindNames.at(static_cast<std::size_t>(file.kind)));
    want(missingKey, {});
    want(u"ModificationTime", withTimes ? formatTime(file.trace.modified) : std::u16string());
    want(u"Size", file.kind == FileKind::file ? host::fromUtf8(std::to_string(file.trace.size)) : std::u16string());
    const auto& children = before.getChildNodes();
    const bool hasSettled =
        std::any_of(children.begin(), children.end(), [](const auto& child) { return isSettledByScan(*child); });
    if (changes.empty() && !hasSettled)
        return nullptr;
    std::shared_ptr<pm::MetadataNode> node = changeAttributes(before, changes);
    const auto copies = node->getChildNodes();
    for (const auto& child : copies) {
        if (isSettledByScan(*child))
            node->remove(*child);
    }
    return node;
}

const pm::MetadataNode& noNode() {
    static const pm::MetadataNode& node = *new pm::MetadataNodeSpecification();
    return node;
}

/// A path that is in a scanned folder, and not on disk, or that lies below such a one.
struct Gone {
    pm::MetadataPath path;
    std::shared_ptr<pm::MetadataNode> node;  // null for a branch
    std::size_t parent = none;               // none for one whose parent is still there
    bool isFile = false;                     // of a file or folder: all others belong to somebody else
    bool isScanned = false;                  // a scan has written all of it

    // What becomes of it.
    std::size_t target = none;  // the file that it stands for now
    bool isUnseen = false;      // it is in a folder that has moved and cannot be read
    bool isPruned = false;      // it goes, whatever is there
    bool isKept = false;        // it stays, though there is no file for it
    pm::MetadataPath newPath;   // if it is kept or has a target
    std::vector<std::size_t> children;
};

class ScanComparison {
public:
    ScanComparison(const pm::MetadataManager& store, const Scan& scan, const ScanWish& wish, ScanRecord& record,
                   Progress& progress)
        : store_(store),
          scan_(scan),
          wish_(wish),
          record_(record),
          progress_(progress),
          paths_(scan.size()),
          isKnown_(scan.size()),
          sources_(scan.size(), none) {}

    ScanChange run() {
        walk();
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            if (!isKnown_[i])
                paths_[i] = childPath(paths_[scan_[i].parent], pm::PathElement(typeOf(scan_[i]), scan_[i].name));
        }
        if (!gone_.empty()) {
            findTargets();
            decide();
        }
        describeFiles();
        changeGone();
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
            for (pm::MetadataPath& child : store_.getChildren(paths_[folder])) {
                progress_.advance();
                const pm::PathElement& leaf = child.getPath().back();
                if (!isScannedType(leaf.getType()))
                    continue;
                const std::size_t index = findChild(scan_, folder, leaf);
                if (index == none) {
                    if (scan_[folder].isComplete)
                        addGone(std::move(child), none);
                    continue;
                }
                isKnown_[index] = true;
                paths_[index] = std::move(child);
                if (scan_[index].kind == FileKind::folder && !scan_[index].isLeftOut)
                    folders.push_back(index);
            }
        }
    }

    /// Adds `path` and all below it, each before those below it.
    void addGone(pm::MetadataPath path, std::size_t parent) {
        progress_.advance();
        const std::size_t index = gone_.size();
        goneByPath_.emplace(path, index);
        Gone& gone = gone_.emplace_back();
        const std::u16string& type = path.getPath().back().getType();
        const bool isInFolder = parent == none || (gone_[parent].isFile && isFolder(gone_[parent].path));
        gone.isFile = isInFolder && isScannedType(type);
        gone.node = store_.getNode(path);
        gone.isScanned = gone.isFile && gone.node && operations::isScanned(*gone.node);
        gone.path = path;
        gone.parent = parent;
        if (parent != none)
            gone_[parent].children.push_back(index);
        for (pm::MetadataPath& child : store_.getChildren(path))
            addGone(std::move(child), index);
    }

    static bool isFolder(const pm::MetadataPath& path) { return path.getPath().back().getType() == folderType; }

    /// Whether `index` is a file that has been described by no path so far.
    bool isNew(std::size_t index) const {
        return !isKnown_[index] && !scan_[index].isLeftOut && sources_[index] == none;
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
            const std::size_t above = gone_[i].parent == none ? none : gone_[gone_[i].parent].target;
            if (above == none || !gone_[i].isFile || gone_[i].target != none)
                continue;
            const std::size_t file = findChild(scan_, above, gone_[i].path.getPath().back());
            if (file != none && isNew(file))
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
                file != none)
                claims[file].push_back(i);
        }
        for (const auto& [file, sources] : claims) {
            const std::size_t each = file;
            if (const std::size_t source = chooseByName(sources, [&](std::size_t gone) { return hasName(gone, each); });
                source != none)
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
        return isOnly ? *first : none;
    }

    bool hasName(std::size_t gone, std::size_t file) const {
        return gone_[gone].path.getPath().back().getLocation() == scan_[file].name;
    }

    static bool isSame(const Gone& gone, const FileTrace& before, const ScannedFile& file) {
        const FileTrace& now = file.trace;
        if (gone.path.getPath().back().getType() != typeOf(file) || !(before.identity == now.identity))
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
            if (gone.target != none || !gone.isFile || isFolder(gone.path))
                continue;
            std::uint64_t size = 0;
            std::u16string time;
            if (traces[i]) {
                size = traces[i]->size;
                time = formatTime(traces[i]->modified);
            } else if (gone.node) {
                const std::u16string& text = gone.node->get(u"Size");
                const bool isNumber = text.size() < 19 && findOwnKey(u"Size")->isWritten(text);
                size = isNumber ? std::stoull(host::toUtf8(text)) : 0;
                time = gone.node->get(u"ModificationTime");
            }
            if (size != 0 && !time.empty())
                pairs[{gone.path.getPath().back().getLocation(), size, time}].first.push_back(i);
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
            const Gone* const parent = gone.parent == none ? nullptr : &gone_[gone.parent];
            gone.isUnseen = parent && (parent->target == none ? parent->isUnseen : !scan_[parent->target].isComplete);
            gone.isPruned =
                wish_.prune && gone.target == none && !gone.isUnseen && (gone.isFile || (parent && parent->isPruned));
        }
        for (std::size_t i = gone_.size(); i-- > 0;) {
            Gone& gone = gone_[i];
            const bool isAbove = std::any_of(gone.children.begin(), gone.children.end(),
                                             [&](std::size_t child) { return gone_[child].isKept; });
            gone.isKept = gone.target == none && !gone.isPruned && (gone.isUnseen || !gone.isScanned || isAbove);
        }
        for (Gone& gone : gone_) {
            gone.newPath = gone.path;
            if (gone.target != none) {
                gone.newPath = paths_[gone.target];
            } else if (gone.parent != none && gone.isKept) {
                // Where the place is taken, by a file that was found to be another one, it stays.
                const Gone& parent = gone_[gone.parent];
                const pm::PathElement step = gone.path.getPath().back();
                const bool isTaken = parent.target != none && findChild(scan_, parent.target, step) != none &&
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
            if (isKnown_[i] && file.isOnTheWay)
                continue;
            std::shared_ptr<pm::MetadataNode> before = sources_[i] != none ? gone_[sources_[i]].node
                                                       : isKnown_[i]       ? store_.getNode(paths_[i])
                                                                           : nullptr;
            std::shared_ptr<pm::MetadataNode> node = describe(file, before ? *before : noNode(), wish_.withTimes);
            if (sources_[i] != none)
                result_.moved.emplace_back(gone_[sources_[i]].path, paths_[i]);
            else if (node)
                (isKnown_[i] ? change.updated : change.added).push_back(paths_[i]);
            if (node || sources_[i] != none)
                change.nodes.emplace_back(paths_[i], node ? node : before);
        }
    }

    void changeGone() {
        StoreChange& change = result_.change;
        for (const Gone& gone : gone_) {
            if (gone.target != none)
                continue;
            if (!gone.isKept) {
                change.removed.push_back(gone.path);
                continue;
            }
            const bool isMoved = gone.newPath != gone.path;
            const bool isMissing = gone.isFile && !gone.isUnseen;
            const bool isMarked = isMissing && !(gone.node && gone.node->get(missingKey) == u"true");
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
            if (isMarked) {
                node = changeAttributes(node ? *node : noNode(), {{missingKey, u"true"}});
            }
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
                const std::size_t file = isScannedType(leaf.getType()) ? findChild(scan_, index, leaf) : none;
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
        if (sources_[index] != none) {
            for (const std::size_t child : gone_[sources_[index]].children) {
                if (gone_[child].isKept)
                    arrangeKept(gone_[child]);
            }
        }
    }

    void arrangePlace(const pm::MetadataPath& path, std::size_t file) {
        const auto gone = goneByPath_.find(path);
        if (file != none)
            arrange(file);
        else if (gone != goneByPath_.end())
            arrangeKept(gone_[gone->second]);
        else
            arrangeOther(path);
    }

    const pm::MetadataManager& store_;
    const Scan& scan_;
    const ScanWish& wish_;
    ScanRecord& record_;
    Progress& progress_;
    std::vector<pm::MetadataPath> paths_;  // of every element of the scan
    std::vector<bool> isKnown_;            // whether it is in the store
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
