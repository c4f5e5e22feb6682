#include "store_support/TreeRules.hpp"

#include <algorithm>
#include <string>
#include <typeinfo>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/SharedNode.hpp"

namespace store_support {

using project::metadata::MetadataNode;
using project::metadata::MetadataWriteFailure;
using project::metadata::PathElement;
using project::metadata::raise;

namespace {

/// Well below the limits of the XML reader: 50,000 bytes for a name, 10,000,000 for a value.
constexpr std::size_t longName = 10000;
constexpr std::size_t longValue = 1000000;

bool isXmlName(const std::u16string& text) {
    const auto isBlank = [](char16_t unit) { return unit == u' ' || unit == u'\t' || unit == u'\n' || unit == u'\r'; };
    return project::metadata::isValidKey(text) && !isBlank(text.front()) && !isBlank(text.back());
}

bool needsProof(const std::u16string& name) {
    return name.size() > longName || name.find(u':') != std::u16string::npos || name == u"xmlns";
}

/// Texts are compared as they can be written: unpaired surrogates do not survive.
bool equalOnceWritten(const MetadataNode& read, const MetadataNode& written) {
    const auto rewritten = [](const std::u16string& text) { return host::fromUtf8(host::toUtf8(text)); };
    const auto keys = written.getAttributeKeys();
    const auto& children = written.getChildNodes();
    return read.getName() == rewritten(written.getName()) && read.getAttributeKeys() == keys &&
           std::all_of(keys.begin(), keys.end(),
                       [&](const std::u16string& key) { return read.get(key) == rewritten(written.get(key)); }) &&
           std::equal(read.getChildNodes().begin(), read.getChildNodes().end(), children.begin(), children.end(),
                      [](const auto& a, const auto& b) { return equalOnceWritten(*a, *b); });
}

}  // namespace

void requireSteps(const project::metadata::MetadataPath& path, const host::Path& file) {
    const std::size_t steps = path.getPath().size();
    if (steps > maximumSteps) {
        raise<MetadataWriteFailure>(file.text(), u"a path of " + host::fromUtf8(std::to_string(steps)) +
                                                     u" steps would be in it; no store takes more than " +
                                                     host::fromUtf8(std::to_string(maximumSteps)));
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

void requireDepth(int depth, const host::Path& file) {
    if (depth >= maximumXmlDepth) {
        raise<MetadataWriteFailure>(file.text(), u"its elements would be nested more than " +
                                                     host::fromUtf8(std::to_string(maximumXmlDepth)) +
                                                     u" levels deep, which cannot be read back");
    }
}

void requireReadable(const MetadataNode& node, int depth, const host::Path& file) {
    requireDepth(depth, file);
    if (!isXmlName(node.getName()))
        raise<MetadataWriteFailure>(file.text(), u"the node name \"" + node.getName() + u"\" is no XML name");
    for (const std::u16string& key : node.getAttributeKeys()) {
        if (!isXmlName(key)) {
            raise<MetadataWriteFailure>(
                file.text(), u"the attribute key \"" + key + u"\" has blanks around it, which would get lost");
        }
    }
    for (const auto& child : node.getChildNodes())
        requireReadable(*child, depth + 1, file);
}

bool needsProof(const MetadataNode& node) {
    const auto keys = node.getAttributeKeys();
    const auto& children = node.getChildNodes();
    return needsProof(node.getName()) ||
           std::any_of(keys.begin(), keys.end(),
                       [&](const auto& key) { return needsProof(key) || node.get(key).size() > longValue; }) ||
           std::any_of(children.begin(), children.end(), [](const auto& child) { return needsProof(*child); });
}

bool needsProof(const PathElement& element) {
    return element.getType().size() > longValue || element.getLocation().size() > longValue;
}

void requireReadsBack(const MetadataNode& node, const host::Path& writtenFile, const host::Path& file) {
    try {
        if (equalOnceWritten(*project::metadata::readFromFile(writtenFile), node))
            return;
    } catch (const project::exception::ProjectException&) {
        raise<MetadataWriteFailure>(file.text(),
                                    u"it could not be read back: a name or value in it is too long, or its "
                                    u"names use the namespaces of XML wrongly");
    }
    raise<MetadataWriteFailure>(file.text(),
                                u"it would read back differently: its names use the namespaces of XML wrongly");
}

void requireStorable(const MetadataNode& node, const host::Path& file) {
    constexpr int depth = 2;  // how many elements lie above a node where stores keep it in XML
    static_cast<void>(borrowNode(&node));
    requireReadable(node, depth, file);
    if (!needsProof(node))
        return;
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"metadata-", u"");
    const host::Path proof = host::Path(scratch.getDirectoryName()) / u"node.xml";
    project::metadata::writeToFile(node, proof, false);
    requireReadsBack(node, proof, file);
}

}  // namespace store_support
