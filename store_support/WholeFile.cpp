#include "store_support/WholeFile.hpp"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "project/metadata/MetadataXml.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/TreeRules.hpp"

namespace store_support {

namespace {

/// @throws MetadataReadFailure unless `file` is a regular file, or a link to one
Descriptor openForReading(const Path& file) {
    auto opened = openRegularFile(file, 0);
    if (!opened)
        raiseReadError(file, ENOENT);
    return std::move(opened->descriptor);
}

[[noreturn]] void raiseLoss(const Path& file, const std::u16string& what) {
    raise<MetadataReadFailure>(file.text(), describeLoss(what));
}

}  // namespace

std::unique_ptr<MetadataNode> readWholeFile(const Path& file,
                                            const std::function<bool(const MetadataNode& root)>& isOwn) {
    static_cast<void>(openForReading(file));
    try {
        if (!isOwn(*project::metadata::readRootFromFile(file)))
            return nullptr;
    } catch (const project::exception::ProjectException&) {
        return nullptr;
    }
    project::metadata::LeftOut leftOut;
    auto read = project::metadata::readFromFile(file, leftOut);
    if (!leftOut.passedOver.empty())
        raiseLoss(file, leftOut.passedOver);
    return leftOut.refused.empty() ? std::move(read) : project::metadata::readFromFile(file);
}

void requireNothingLost(const MetadataNode& read, const MetadataNode& rewritten, const Path& file) {
    const auto keys = rewritten.getAttributeKeys();
    for (const std::u16string& key : read.getAttributeKeys()) {
        if (!std::binary_search(keys.begin(), keys.end(), key) || read.get(key) != rewritten.get(key))
            raiseLoss(file, u"an attribute \"" + key + u"\" of <" + read.getName() + u">");
    }
    const auto& children = rewritten.getChildNodes();
    for (std::size_t i = 0; i < read.getChildNodes().size(); ++i) {
        const MetadataNode& child = *read.getChildNodes()[i];
        if (i >= children.size() || children[i]->getName() != child.getName())
            raiseLoss(file, u"<" + child.getName() + u"> in <" + read.getName() + u">");
        if (children[i].get() != &child)
            requireNothingLost(child, *children[i], file);
    }
}

void writeWholeFile(const MetadataNode& xml, bool compactEnding, const Path& file) {
    requireReadable(xml, 0, file);
    replaceFile(file, [&](const Path& staged) {
        project::metadata::writeToFile(xml, staged, compactEnding);
        if (project::metadata::needsProof(xml))
            requireReadsBack(xml, staged, file);
    });
}

}  // namespace store_support
