#include "stores/monolithic/MonolithicFormat.hpp"

#include "project/metadata/SharedNode.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/TreeRules.hpp"
#include "store_support/WholeFile.hpp"
#include "stores/monolithic/MonolithicManager.hpp"
#include "stores/monolithic/SharedTree.hpp"

namespace stores::monolithic {

using project::metadata::FileContent;

namespace {

bool isOwn(const MetadataNode& root) {
    return root.getName() == projectElementName && root.get(metadataTypeKey()) == monolithicName;
}

void copyTo(project::metadata::PathTree& to, const SharedTree& from) {
    to.node = from.node;
    for (const SharedTree::Child& child : from.getChildren())
        copyTo(to.children.emplace_back(project::metadata::PathTree{child.element, nullptr, {}, {}}), child.tree);
}

/// @param depth how many elements lie above that of the path
/// @param file for the error
void copyTo(SharedTree& to, const project::metadata::PathTree& from, int depth, const Path& file) {
    requireDepth(depth, file);
    if (from.node)
        requireReadable(project::metadata::getShared(*from.node), depth + 2, file);
    to.node = from.node;
    for (const project::metadata::PathTree& child : from.children) {
        if (to.find(child.step))
            raise<MetadataWriteFailure>(file.text(), u"a path would stand twice under one parent in it");
        copyTo(to.add(child.step), child, depth + 1, file);
    }
}

}  // namespace

std::vector<std::u16string> MonolithicFormat::getFilePatterns() const {
    return {coreFileName()};
}

std::optional<FileContent> MonolithicFormat::readFile(const Path& file) const {
    const auto xml = readWholeFile(file, isOwn);
    if (!xml)
        return std::nullopt;
    std::vector<MetadataDamage> damage;
    const SharedTree tree = fromXml(*xml, Elements::stay, {}, file, damage);
    if (!damage.empty())
        raise<MetadataReadFailure>(file.text(), damage.front().problem);
    requireNothingLost(*xml, *toXml(tree), file);
    FileContent content{true, {}};
    copyTo(content.tree, tree);
    return content;
}

void MonolithicFormat::writeFile(const FileContent& content, const Path& file) const {
    if (!content.isRoot)
        raise<MetadataWriteFailure>(file.text(), u"a file of this store holds all paths from the root path on");
    SharedTree tree;
    copyTo(tree, content.tree, 0, file);
    const bool isEmpty = !tree.node && tree.getChildren().empty();
    replaceFile(file, [&](const Path& staged) {
        writeProved([&](auto& sink) { tellXml(tree, sink); }, staged, isEmpty, file);
    });
}

}  // namespace stores::monolithic
