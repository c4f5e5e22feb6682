#include "store_support/Renaming.hpp"

#include <string>
#include <utility>
#include <vector>

#include "store_support/TreeRules.hpp"

namespace store_support {

MetadataPath replaceLeaf(const MetadataPath& path, const PathElement& element) {
    std::vector<PathElement> elements = path.getPath();
    if (!elements.empty())
        elements.back() = element;
    return MetadataPath(std::move(elements));
}

bool requireRenamable(const MetadataPath& path, const MetadataPath& target, const Renaming& found, const Path& file) {
    const std::u16string name = u"the path \"" + path.string() + u"\", which was to be renamed, ";
    const auto refuse = [&](const std::u16string& obstacle) { raise<MetadataWriteFailure>(file.text(), obstacle); };
    if (path.getPath().empty())
        refuse(u"the root path has no name");
    if (!found.isThere)
        refuse(name + u"is not there");
    if (target == path)
        return false;
    if (found.hasPathsBelow)
        refuse(name + u"has paths below it");
    if (found.isTargetThere)
        refuse(u"there is a path \"" + target.string() + u"\" already");
    requireStorable(target, file);
    return true;
}

}  // namespace store_support
