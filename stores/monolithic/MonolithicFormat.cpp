#include "stores/monolithic/MonolithicFormat.hpp"

#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/WholeFile.hpp"
#include "stores/monolithic/MonolithicManager.hpp"
#include "stores/monolithic/SharedTree.hpp"

namespace stores::monolithic {

using host::Path;
using project::metadata::FileContent;
using project::metadata::MetadataNode;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;

namespace {

bool isOwn(const MetadataNode& root) {
    return root.getName() == store_support::projectElementName &&
           root.get(project::metadata::metadataTypeKey()) == monolithicName;
}

void copyTo(project::metadata::PathTree& to, const SharedTree& from) {
    to.node = from.node;
    for (const SharedTree::Child& child : from.getChildren())
        copyTo(to.children.emplace_back(project::metadata::PathTree{child.element, nullptr, {}, {}}), child.tree);
}

/// @param file for the error
void copyTo(SharedTree& to, const project::metadata::PathTree& from, const Path& file) {
    to.node = from.node;
    for (const project::metadata::PathTree& child : from.children) {
        if (to.find(child.step))
            raise<MetadataWriteFailure>(file.text(), u"a path would stand twice under one parent in it");
        copyTo(to.add(child.step), child, file);
    }
}

}  // namespace

std::vector<std::u16string> MonolithicFormat::getFilePatterns() const {
    return {project::metadata::coreFileName()};
}

std::optional<FileContent> MonolithicFormat::readFile(const Path& file) const {
    const auto xml = store_support::readWholeFile(file, isOwn);
    if (!xml)
        return std::nullopt;
    std::vector<project::metadata::MetadataDamage> damage;
    const SharedTree tree = fromXml(*xml, Elements::stay, {}, file, damage);
    if (!damage.empty())
        raise<MetadataReadFailure>(file.text(), damage.front().problem);
    store_support::requireNothingLost(*xml, *toXml(tree), file);
    FileContent content{true, {}};
    copyTo(content.tree, tree);
    return content;
}

void MonolithicFormat::writeFile(const FileContent& content, const Path& file) const {
    if (!content.isRoot)
        raise<MetadataWriteFailure>(file.text(), u"a file of this store holds all paths from the root path on");
    SharedTree tree;
    copyTo(tree, content.tree, file);
    const auto xml = toXml(tree);
    store_support::writeWholeFile(*xml, xml->getChildNodes().empty(), file);
}

}  // namespace stores::monolithic
