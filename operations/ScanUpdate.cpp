#include "operations/ScanUpdate.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/Text.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/TreeWalk.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace operations {

namespace {

namespace pm = project::metadata;

using Scan = std::vector<ScannedFile>;

const char16_t* const folderType = u"Folder";
const char16_t* const fileType = u"File";

const char16_t* typeOf(const ScannedFile& file) {
    return file.kind == FileKind::folder ? folderType : fileType;
}

bool isScannedType(const std::u16string& type) {
    return type == folderType || type == fileType;
}

/// The metadata path of every element of `scan`.
std::vector<pm::MetadataPath> makePaths(const Scan& scan) {
    std::vector<pm::MetadataPath> paths(1);
    paths.reserve(scan.size());
    for (std::size_t i = 1; i < scan.size(); ++i) {
        std::vector<pm::PathElement> elements = paths[scan[i].parent].getPath();
        elements.emplace_back(typeOf(scan[i]), scan[i].name);
        paths.emplace_back(std::move(elements));
    }
    return paths;
}

/// The element of `scan` that `step` leads to from the folder `folder`.
std::optional<std::size_t> findChild(const Scan& scan, std::size_t folder, const pm::PathElement& step) {
    const auto first = scan.begin() + static_cast<std::ptrdiff_t>(scan[folder].firstChild);
    const auto last = first + static_cast<std::ptrdiff_t>(scan[folder].childCount);
    const auto found =
        std::lower_bound(first, last, step.getLocation(),
                         [](const ScannedFile& file, const std::u16string& name) { return file.name < name; });
    if (found == last || found->name != step.getLocation() || typeOf(*found) != step.getType())
        return std::nullopt;
    return static_cast<std::size_t>(found - scan.begin());
}

/// What a store holds, seen from a scan.
struct Comparison {
    std::vector<std::size_t> known;          // the elements of the scan that have a path, in the order of the store
    std::vector<pm::MetadataPath> vanished;  // the paths of files that are gone, and all below them
    std::vector<pm::MetadataPath> others;    // the paths that do not belong to the scan and stay, parents first
};

/// Walks the store level by level, as the scan went through the folders, so that equal trees come in equal order.
Comparison compare(const pm::MetadataManager& store, const Scan& scan, Progress& progress) {
    struct Branch {
        pm::MetadataPath path;
        std::optional<std::size_t> scanned;  // the element of the scan that it stands for
    };
    Comparison result;
    std::deque<Branch> queue{{pm::MetadataPath(), 0}};
    while (!queue.empty()) {
        const Branch branch = std::move(queue.front());
        queue.pop_front();
        for (pm::MetadataPath& child : store.getChildren(branch.path)) {
            const pm::PathElement& leaf = child.getPath().back();
            std::optional<std::size_t> scanned;
            if (!branch.scanned || !isScannedType(leaf.getType())) {
                result.others.push_back(child);
            } else if ((scanned = findChild(scan, *branch.scanned, leaf))) {
                result.known.push_back(*scanned);
            } else {
                const auto gone = listPaths(store, child, progress);
                result.vanished.insert(result.vanished.end(), gone.begin(), gone.end());
                continue;
            }
            progress.advance();
            queue.push_back({std::move(child), scanned});
        }
    }
    return result;
}

struct Attribute {
    const char16_t* key;
    std::u16string value;  // empty: the node is not to have it
};

std::array<Attribute, 3> attributesOf(const ScannedFile& file) {
    static const std::map<FileKind, std::u16string> kindNames{{FileKind::file, u"file"},
                                                              {FileKind::folder, u"folder"},
                                                              {FileKind::symlink, u"symlink"},
                                                              {FileKind::other, u"other"}};
    const bool hasSize = file.kind == FileKind::file;
    return {{{u"Kind", kindNames.at(file.kind)},
             {u"ModificationTime", formatTime(file.modified)},
             {u"Size", hasSize ? host::fromUtf8(std::to_string(file.size)) : u""}}};
}

/// `before` with the attributes of `file` in place of its own; null if it has them already.
std::shared_ptr<pm::MetadataNode> describe(const ScannedFile& file, const pm::MetadataNode& before) {
    const std::array<Attribute, 3> attributes = attributesOf(file);
    if (std::all_of(attributes.begin(), attributes.end(),
                    [&](const Attribute& attribute) { return before.get(attribute.key) == attribute.value; }))
        return nullptr;

    AttributeChanges changes;
    for (const Attribute& attribute : attributes)
        changes[attribute.key] = attribute.value.empty() ? std::nullopt : std::optional(attribute.value);
    return changeAttributes(before, changes);
}

}  // namespace

StoreChange findScanChange(const pm::MetadataManager& store, const Scan& scan, Progress& progress) {
    std::vector<pm::MetadataPath> paths = makePaths(scan);
    Comparison stored = compare(store, scan, progress);
    std::vector<bool> isKnown(scan.size());
    for (const std::size_t index : stored.known)
        isKnown[index] = true;

    StoreChange change;
    const pm::MetadataNodeSpecification noNode;
    for (std::size_t i = 1; i < scan.size(); ++i) {
        progress.advance();
        const std::unique_ptr<const pm::MetadataNode> before = isKnown[i] ? store.getNode(paths[i]) : nullptr;
        if (auto node = describe(scan[i], before ? *before : noNode)) {
            (isKnown[i] ? change.updated : change.added).push_back(paths[i]);
            change.nodes.emplace_back(paths[i], std::move(node));
        }
    }

    change.removed = std::move(stored.vanished);
    const bool isSorted = std::is_sorted(stored.known.begin(), stored.known.end());
    if (!change.added.empty() || !change.removed.empty() || !isSorted) {
        paths.insert(paths.end(), stored.others.begin(), stored.others.end());
        change.paths = std::move(paths);
    }
    return change;
}

}  // namespace operations
