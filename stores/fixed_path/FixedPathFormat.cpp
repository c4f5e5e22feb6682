#include "stores/fixed_path/FixedPathFormat.hpp"

#include "store_support/WholeFile.hpp"
#include "stores/fixed_path/NodeFileName.hpp"
#include "stores/fixed_path/PathFile.hpp"

namespace stores::fixed_path {

using project::metadata::FileContent;

std::vector<std::u16string> FixedPathFormat::getFilePatterns() const {
    return {coreFileName(), nodeFilePattern()};
}

std::optional<FileContent> FixedPathFormat::readFile(const Path& file) const {
    const auto xml = readWholeFile(file, isPathFile);
    if (!xml)
        return std::nullopt;
    const bool isRoot = isCoreFile(*xml);
    const PathFile content = fromXml(*xml, isRoot, file);
    if (content.damage)
        raise<MetadataReadFailure>(file.text(), content.damage->problem);
    requireNothingLost(*xml, *toXml(content, isRoot), file);
    return FileContent{isRoot, {content.element, content.node, content.rank, {}}};
}

void FixedPathFormat::writeFile(const FileContent& content, const Path& file) const {
    const auto& tree = content.tree;
    if (!tree.children.empty())
        raise<MetadataWriteFailure>(file.text(), u"a file of this store holds one path, and none below it");
    if (!content.isRoot && !isRank(tree.place))
        raise<MetadataWriteFailure>(file.text(), u"the place of the path is no rank: \"" + tree.place + u"\"");
    const bool compactEnding = content.isRoot && !tree.node;
    const auto xml = toXml({tree.step, tree.place, tree.node, {}, {}, tree.node != nullptr}, content.isRoot);
    writeWholeFile(*xml, compactEnding, file);
}

}  // namespace stores::fixed_path
