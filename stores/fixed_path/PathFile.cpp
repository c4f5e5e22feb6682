#include "stores/fixed_path/PathFile.hpp"

#include "project/metadata/CoreFile.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using store_support::findForeign;
using store_support::pathElementName;
using store_support::projectElementName;

const std::u16string& fixedPathName = *new std::u16string(u"fixedPath");
const project::metadata::PathElement& noElement = *new project::metadata::PathElement({}, {});

namespace {

const std::u16string& rankKey = *new std::u16string(u"Rank");

/// Empty if there is none.
Rank getRank(const MetadataNode& xml) {
    const std::u16string& rank = xml.get(rankKey);
    return isRank(rank) ? rank : Rank();
}

}  // namespace

bool isCoreFile(const MetadataNode& root) {
    return root.getName() == projectElementName && root.get(project::metadata::metadataTypeKey()) == fixedPathName;
}

bool isPathFile(const MetadataNode& root) {
    return isCoreFile(root) || root.getName() == pathElementName;
}

PathFile fromXml(const MetadataNode& xml, bool isRoot, const Path& file) {
    PathFile content;
    if (!isRoot) {
        content.element = store_support::getPathElement(xml, file);
        content.rank = getRank(xml);
        if (content.rank.empty())
            content.setDamage(u"its " + rankKey + u" is missing or invalid");
    }
    content.node = store_support::getNode(xml, file);
    if (!content.damage) {
        const auto foreign = isRoot ? findForeign(xml, {project::metadata::metadataTypeKey()}, false)
                                    : findForeign(xml, {rankKey}, false);
        if (!foreign.empty())
            content.setDamage(store_support::describeLoss(foreign), true);
    }
    return content;
}

void tellXml(const PathFile& content, bool isRoot, project::metadata::XmlSink& sink) {
    sink.begin(isRoot ? projectElementName : pathElementName);
    if (isRoot) {
        sink.put(project::metadata::metadataTypeKey(), fixedPathName);
    } else {
        store_support::putPathElement(sink, content.element);
        sink.put(rankKey, content.rank);
    }
    store_support::putNode(sink, content.node);
    sink.end();
}

std::shared_ptr<const MetadataNode> toXml(const PathFile& content, bool isRoot) {
    return store_support::makeNodes([&](project::metadata::XmlSink& sink) { tellXml(content, isRoot, sink); });
}

}  // namespace stores::fixed_path
