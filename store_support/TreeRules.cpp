#include "store_support/TreeRules.hpp"

#include <string>
#include <typeinfo>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/PathXml.hpp"

namespace store_support {

namespace {

/// In UTF-16 units. Shorter path elements can be read back, whatever they hold.
constexpr std::size_t longElement = 100'000;

bool isXmlName(const std::u16string& text) {
    const auto isBlank = [](char16_t unit) { return unit == u' ' || unit == u'\t' || unit == u'\n' || unit == u'\r'; };
    return project::metadata::isValidKey(text) && !isBlank(text.front()) && !isBlank(text.back());
}

/// What of `written` is not the same in `read`; empty if all is.
std::u16string findDifference(const MetadataNode& read, const MetadataNode& written) {
    std::u16string element = u"<" + written.getName() + u">";
    const auto keys = written.getAttributeKeys();
    for (const std::u16string& key : keys) {
        if (read.get(key) != written.get(key))
            return u"the attribute \"" + key + u"\" of " + element;
    }
    const auto& children = written.getChildNodes();
    if (read.getName() != written.getName() || read.getAttributeKeys() != keys ||
        read.getChildNodes().size() != children.size())
        return element;
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (auto difference = findDifference(*read.getChildNodes()[i], *children[i]); !difference.empty())
            return difference;
    }
    return {};
}

}  // namespace

void requireStorable(const MetadataPath& path, const Path& file) {
    const std::size_t steps = path.getPath().size();
    if (steps > maximumSteps) {
        raise<MetadataWriteFailure>(file.text(), u"a path of " + fromUtf8(std::to_string(steps)) +
                                                     u" steps would be in it; no store takes more than " +
                                                     fromUtf8(std::to_string(maximumSteps)));
    }
    for (const PathElement& element : path.getPath()) {
        if (element.getType().size() + element.getLocation().size() <= longElement)
            continue;
        project::metadata::MetadataNodeSpecification xml(pathElementName);
        putPathElement(xml, element);
        requireStorable(xml, file);
    }
}

std::shared_ptr<const MetadataNode> borrowNode(const MetadataNode* node) {
    if (node) {
        const MetadataNode& said = project::metadata::getShared(*node);
        if (typeid(said) != typeid(project::metadata::MetadataNodeSpecification))
            return project::metadata::keepNode(*node);
    }
    return {std::shared_ptr<const MetadataNode>(), node};
}

void requireDepth(int depth, const Path& file) {
    if (depth >= maximumXmlDepth) {
        raise<MetadataWriteFailure>(file.text(), u"its elements would be nested more than " +
                                                     fromUtf8(std::to_string(maximumXmlDepth)) +
                                                     u" levels deep, which cannot be read back");
    }
}

void requireReadable(const MetadataNode& node, int depth, const Path& file) {
    requireDepth(depth, file);
    if (!isXmlName(node.getName()))
        raise<MetadataWriteFailure>(file.text(), u"the node name \"" + node.getName() + u"\" is no XML name");
    for (const std::u16string& key : node.getAttributeKeys()) {
        if (!isXmlName(key)) {
            raise<MetadataWriteFailure>(
                file.text(), u"the attribute key \"" + key + u"\" has blanks around it, which would get lost");
        }
        if (!survivesXml(node.get(key))) {
            raise<MetadataWriteFailure>(file.text(), u"the value of \"" + key + u"\" of <" + node.getName() +
                                                         u"> has a surrogate without a partner, which XML cannot hold");
        }
    }
    for (const auto& child : node.getChildNodes())
        requireReadable(*child, depth + 1, file);
}

void requireReadsBack(const MetadataNode& node, const Path& writtenFile, const Path& file) {
    std::u16string difference;
    try {
        difference = findDifference(*project::metadata::readFromFile(writtenFile), node);
    } catch (const project::exception::ProjectException&) {
        raise<MetadataWriteFailure>(file.text(),
                                    u"it could not be read back: a name or the attributes of an element in it are too "
                                    u"long, or its names use the namespaces of XML wrongly");
    }
    if (!difference.empty()) {
        raise<MetadataWriteFailure>(
            file.text(),
            difference + u" would read back differently, as XML cannot hold it or takes it for a namespace");
    }
}

void writeProved(const std::function<void(project::metadata::XmlSink& sink)>& tell, const Path& staged,
                 bool compactEnding, const Path& file) {
    if (project::metadata::writeToFile(tell, staged, compactEnding))
        requireReadsBack(*makeNodes(tell), staged, file);
}

void requireStorable(const MetadataNode& node, const Path& file) {
    constexpr int depth = 2;  // how many elements lie above a node where stores keep it in XML
    static_cast<void>(borrowNode(&node));
    requireReadable(node, depth, file);
    if (!project::metadata::needsProof(node))
        return;
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"metadata-", u"");
    const Path proof = Path(scratch.getDirectoryName()) / u"node.xml";
    project::metadata::writeToFile(node, proof, false);
    requireReadsBack(node, proof, file);
}

}  // namespace store_support
