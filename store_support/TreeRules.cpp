#include "store_support/TreeRules.hpp"

#include <string>
#include <typeinfo>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/HexDigits.hpp"
#include "store_support/PathXml.hpp"

namespace store_support {

namespace {

/// In UTF-16 units. Shorter path elements can be read back, whatever they hold.
constexpr std::size_t longElement = 100'000;

bool hasBlanksAround(const std::u16string& text) {
    const auto isBlank = [](char16_t unit) { return unit == u' ' || unit == u'\t' || unit == u'\n' || unit == u'\r'; };
    return !text.empty() && (isBlank(text.front()) || isBlank(text.back()));
}

bool isXmlName(const std::u16string& text) {
    return project::metadata::isValidKey(text) && !hasBlanksAround(text);
}

/// What is wrong with the key of an attribute, which is no XML name.
std::u16string describeBadKey(const std::u16string& key) {
    return project::metadata::isValidKey(key) ? u"has blanks around it, which would get lost" : u"is no XML name";
}

/// What there is in `value`, which does not survive XML.
std::u16string describeBadValue(const std::u16string& value) {
    if (host::fromUtf8(host::toUtf8(value)) != value)
        return u"a surrogate without a partner, which XML cannot hold";
    const auto isOfPair = [](char16_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; };
    for (std::size_t i = 0, size = 1; i < value.size(); i += size) {
        size = isOfPair(value[i]) ? 2 : 1;
        if (project::metadata::isValidAttribute(value.substr(i, size)))
            continue;
        if (size == 1)
            return u"the character U+" + toHex(value[i], 4) + u", which XML cannot hold";
        const unsigned beyond = (value[i] - 0xD800U) * 0x400U + (value[i + 1] - 0xDC00U);
        return u"the character U+" + toHex(0x10000U + beyond, beyond < 0xF0000U ? 5 : 6) + u", which no node takes";
    }
    return u"characters that XML cannot hold";
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

std::u16string pathsBeyondLimit() {
    return u" has paths below it, which have more than " + host::fromUtf8(std::to_string(maximumSteps)) + u" steps";
}

void requireStorable(const project::metadata::MetadataPath& path, const host::Path& file) {
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

std::shared_ptr<const MetadataNode> borrowNode(const MetadataNode* node, const host::Path& file) {
    if (node) {
        const MetadataNode& said = project::metadata::getShared(*node);
        if (typeid(said) != typeid(project::metadata::MetadataNodeSpecification)) {
            requireReadable(said, 0, file);
            return project::metadata::keepNode(*node);
        }
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
    project::metadata::visitAttributes(node, [&](const auto& key, const auto& value) {
        if (!isXmlName(key)) {
            raise<MetadataWriteFailure>(
                file.text(), u"the attribute key \"" + key + u"\" of <" + node.getName() + u"> " + describeBadKey(key));
        }
        if (!survivesXml(value)) {
            raise<MetadataWriteFailure>(file.text(), u"the value of \"" + key + u"\" of <" + node.getName() +
                                                         u"> has " + describeBadValue(value));
        }
    });
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

std::shared_ptr<const MetadataNode> requireStorable(const MetadataNode& node, const host::Path& file) {
    constexpr int depth = 2;  // how many elements lie above a node where stores keep it in XML
    auto stored = borrowNode(&node, file);
    requireReadable(*stored, depth, file);
    if (!project::metadata::needsProof(*stored))
        return stored;
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"metadata-", u"");
    const host::Path proof = host::Path(scratch.getDirectoryName()) / u"node.xml";
    project::metadata::writeToFile(*stored, proof, false);
    requireReadsBack(*stored, proof, file);
    return stored;
}

}  // namespace store_support
