#include "operations/ScannedNode.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "operations/NodeEdit.hpp"
#include "operations/NodeMerge.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace operations {

const std::u16string& scannedFolderType = *new std::u16string(u"Folder");

namespace {

const std::u16string& fileType = *new std::u16string(u"File");
const std::u16string& kindKey = *new std::u16string(u"Kind");
const std::u16string& missingKey = *new std::u16string(u"Missing");
const std::u16string& timeKey = *new std::u16string(u"ModificationTime");
const std::u16string& sizeKey = *new std::u16string(u"Size");

constexpr std::array<const char16_t*, 4> kindNames{u"file", u"folder", u"symlink", u"other"};

struct OwnKey {
    std::u16string key;
    bool (*isWritten)(const std::u16string& value);  // whether a scan could have written that
};

const std::array<OwnKey, 4>& ownKeys() {
    static const auto& keys = *new std::array<OwnKey, 4>{
        {{kindKey,
          [](const std::u16string& value) {
              return std::find(kindNames.begin(), kindNames.end(), value) != kindNames.end();
          }},
         {missingKey, [](const std::u16string& value) { return value == u"true"; }},
         {timeKey, isTime},
         {sizeKey, [](const std::u16string& value) {
              return !value.empty() && value.find_first_not_of(u"0123456789") == std::u16string::npos;
          }}}};
    return keys;
}

const OwnKey* findOwnKey(const std::u16string& key) {
    const auto found =
        std::find_if(ownKeys().begin(), ownKeys().end(), [&](const OwnKey& own) { return own.key == key; });
    return found == ownKeys().end() ? nullptr : &*found;
}

/// A mark of a conflict about what the scan knows better than both sides.
bool isSettledByScan(const pm::MetadataNode& node) {
    return node.getName() == conflictName && node.get(u"What") == u"attribute" && findOwnKey(node.get(u"Key"));
}

const pm::MetadataNode& orEmpty(const pm::MetadataNode* node) {
    static const pm::MetadataNode& empty = *new pm::MetadataNodeSpecification();
    return node ? *node : empty;
}

}  // namespace

const std::u16string& scannedTypeOf(const ScannedFile& file) {
    return file.kind == FileKind::folder ? scannedFolderType : fileType;
}

bool isScannedType(const std::u16string& type) {
    return type == scannedFolderType || type == fileType;
}

std::size_t findChild(const std::vector<ScannedFile>& scan, std::size_t folder, const pm::PathElement& step) {
    const auto first = scan.begin() + static_cast<std::ptrdiff_t>(scan[folder].firstChild);
    const auto last = first + static_cast<std::ptrdiff_t>(scan[folder].childCount);
    const auto found =
        std::lower_bound(first, last, step.getLocation(),
                         [](const ScannedFile& file, const std::u16string& name) { return file.name < name; });
    if (found == last || found->name != step.getLocation() || scannedTypeOf(*found) != step.getType())
        return nowhere;
    return static_cast<std::size_t>(found - scan.begin());
}

bool isScannedNode(const pm::MetadataNode& node) {
    const std::vector<std::u16string> keys = node.getAttributeKeys();
    return node.getName() == pm::getDefaultMetadataNodeName() && node.getChildNodes().empty() &&
           std::binary_search(keys.begin(), keys.end(), kindKey) &&
           std::all_of(keys.begin(), keys.end(), [&](const std::u16string& key) {
               const OwnKey* const own = findOwnKey(key);
               return own && own->isWritten(node.get(key));
           });
}

Description getDescription(const pm::MetadataNode& node) {
    const std::u16string& size = node.get(sizeKey);
    const bool isNumber = size.size() < 19 && findOwnKey(sizeKey)->isWritten(size);
    return {isNumber ? std::stoull(host::toUtf8(size)) : 0, node.get(timeKey)};
}

std::shared_ptr<pm::MetadataNode> describe(const ScannedFile& file, const pm::MetadataNode* before, bool withTimes) {
    const pm::MetadataNode& old = orEmpty(before);
    AttributeChanges changes;
    const auto want = [&](const std::u16string& key, const std::u16string& value) {
        const std::u16string& now = old.get(key);
        if (!value.empty() ? now != value : (!now.empty() && findOwnKey(key)->isWritten(now)))
            changes[key] = value.empty() ? std::nullopt : std::optional(value);
    };
    want(kindKey, kindNames.at(static_cast<std::size_t>(file.kind)));
    want(missingKey, {});
    want(timeKey, withTimes ? formatTime(file.trace.modified) : std::u16string());
    want(sizeKey, file.kind == FileKind::file ? host::fromUtf8(std::to_string(file.trace.size)) : std::u16string());
    const auto& children = old.getChildNodes();
    const bool hasSettled =
        std::any_of(children.begin(), children.end(), [](const auto& child) { return isSettledByScan(*child); });
    if (changes.empty() && !hasSettled)
        return nullptr;
    std::shared_ptr<pm::MetadataNode> described = changeAttributes(old, changes);
    const auto copies = described->getChildNodes();
    for (const auto& child : copies) {
        if (isSettledByScan(*child))
            described->remove(*child);
    }
    return described;
}

bool isMarkedMissing(const pm::MetadataNode* node) {
    const std::vector<std::u16string> keys = orEmpty(node).getAttributeKeys();
    return std::binary_search(keys.begin(), keys.end(), missingKey);
}

std::shared_ptr<pm::MetadataNode> markMissing(const pm::MetadataNode* before) {
    return changeAttributes(orEmpty(before), {{missingKey, u"true"}});
}

}  // namespace operations
