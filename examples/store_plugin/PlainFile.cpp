#include "PlainFile.hpp"

#include <utility>

#include "host/FileSystem.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/TreeRules.hpp"
#include "store_support/WholeFile.hpp"

namespace plain {

using namespace project::metadata;

namespace {

std::unique_ptr<MetadataNode> toXml(const Content& content) {
    auto xml = std::make_unique<MetadataNodeSpecification>(u"Plain");
    xml->put(metadataTypeKey(), storeName);
    for (const auto& [path, node] : content) {
        MetadataNode& entry = xml->createChildNode(u"Entry");
        for (const PathElement& step : path.getPath())
            store_support::putPathElement(entry.createChildNode(store_support::pathElementName), step);
        store_support::putNode(entry, node.get());
    }
    return xml;
}

/// The content that `xml` holds, whatever else it holds too.
Content fromXml(const MetadataNode& xml, const host::Path& file) {
    Content content;
    for (const auto& entry : xml.getChildNodes()) {
        std::vector<PathElement> steps;
        for (const auto& part : entry->getChildNodes()) {
            if (part->getName() == store_support::pathElementName)
                steps.push_back(store_support::getPathElement(*part, file));
        }
        content.push_back({MetadataPath(std::move(steps)), store_support::getNode(*entry, file)});
    }
    return content;
}

}  // namespace

Content load(const host::Path& file) {
    if (!host::FileSystem::exists(file))
        return Content(1);
    const auto isOwn = [](const MetadataNode& root) { return root.get(metadataTypeKey()) == storeName; };
    const auto xml = store_support::readWholeFile(file, isOwn);
    if (!xml)
        raise<MetadataReadFailure>(file.text(), u"it is no file of a store \"plain\"");
    Content content = fromXml(*xml, file);
    if (content.empty() || !content.front().path.getPath().empty())
        raise<MetadataReadFailure>(file.text(), u"it does not begin with the root path");
    store_support::requireNothingLost(*xml, *toXml(content), file);
    return content;
}

void save(const Content& content, const host::Path& file, const store_support::FolderLock& lock) {
    store_support::FileBatch batch;
    batch.folder = file.parentPath();
    batch.filesToWrite = {file};
    batch.write = [&](std::size_t /*index*/, const host::Path& staged) {
        const auto xml = toXml(content);
        writeToFile(*xml, staged, false);
        store_support::requireReadsBack(*xml, staged, file);
    };
    store_support::commit(batch, lock);
}

}  // namespace plain
