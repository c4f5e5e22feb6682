#include "store_support/TreeRules.hpp"

#include <filesystem>
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

// What libxml2 takes: of a name, and of a start tag with what it has in memory around that.
constexpr std::size_t maximumNameBytes = 50'000;
constexpr std::size_t maximumTagBytes = 10'000'000;
constexpr std::size_t bytesAroundTag = 2000;

std::u16string formatNumber(std::size_t number) {
    return fromUtf8(std::to_string(number));
}

/// How many bytes the attributes of `tag`, which has no children, take when they are written into `scratch`.
std::size_t measureAttributes(const MetadataNode& tag, const Path& scratch) {
    const auto measure = [&](const MetadataNode& xml) {
        project::metadata::writeToFile(xml, scratch, true);
        return std::filesystem::file_size(scratch.accessName());
    };
    return measure(tag) - measure(project::metadata::MetadataNodeSpecification(tag.getName()));
}

/// What `name`, of a node or an attribute, is too long for; empty if it is not.
std::u16string describeLongName(const std::u16string& name) {
    constexpr std::size_t shown = 40;
    const std::size_t size = host::toUtf8(name).size();
    if (size <= maximumNameBytes)
        return {};
    return u"the name \"" + name.substr(0, shown) + u"...\" takes " + formatNumber(size) +
           u" bytes, and may take no more than " + formatNumber(maximumNameBytes);
}

/// What of `node` is too long to be read back, in words; empty if nothing is.
std::u16string describeTooLong(const MetadataNode& node, const Path& scratch) {
    const std::u16string& name = node.getName();
    std::u16string problem = describeLongName(name);
    project::metadata::MetadataNodeSpecification tag(name);
    std::u16string longest;
    std::size_t units = 0;
    for (const std::u16string& key : node.getAttributeKeys()) {
        problem = problem.empty() ? describeLongName(key) : problem;
        tag.put(key, node.get(key));
        longest = node.get(key).size() > node.get(longest).size() ? key : longest;
        units += key.size() + node.get(key).size();
    }
    const auto describe = [&](const std::u16string& what, const project::metadata::MetadataNodeSpecification& measured,
                              std::size_t bytesAround) {
        const std::size_t size = measureAttributes(measured, scratch);
        if (problem.empty() && size + bytesAround >= maximumTagBytes) {
            problem = what + u" takes " + formatNumber(size) + u" bytes in XML, where a node may take less than " +
                      formatNumber(maximumTagBytes) + u", with about 200 around its attributes";
        }
    };
    constexpr std::size_t mostBytesOfUnit = 6;
    if (mostBytesOfUnit * units + bytesAroundTag >= maximumTagBytes) {
        project::metadata::MetadataNodeSpecification alone(name);
        alone.put(longest, node.get(longest));
        describe(u"the attribute \"" + longest + u"\" of <" + name + u'>', alone, 0);
        describe(u"all that the attributes of <" + name + u"> hold", tag, bytesAroundTag);
    }
    for (const auto& child : node.getChildNodes())
        problem = problem.empty() ? describeTooLong(*child, scratch) : problem;
    return problem;
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
        const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"metadata-", u"");
        const std::u16string tooLong = describeTooLong(node, Path(scratch.getDirectoryName()) / u"node.xml");
        raise<MetadataWriteFailure>(
            file.text(),
            u"it could not be read back: " +
                (tooLong.empty() ? u"its names are too long together, or use the namespaces of XML wrongly" : tooLong));
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
