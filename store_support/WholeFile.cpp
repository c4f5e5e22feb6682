#include "store_support/WholeFile.hpp"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include <libxml/xmlreader.h>

#include "host/Text.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/TreeRules.hpp"

namespace store_support {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataReadFailure;
using project::metadata::raise;

namespace {

/// @throws project::metadata::MetadataReadFailure unless `file` is a regular file, or a link to one
Descriptor openForReading(const Path& file) {
    auto opened = openRegularFile(file, 0);
    if (!opened)
        raiseReadError(file, ENOENT);
    return std::move(opened->descriptor);
}

/// What metadata files have none of, and readers pass over; null for what belongs there.
const char16_t* nameOfForeign(int type) {
    switch (type) {
        case XML_READER_TYPE_TEXT:
            return u"text";
        case XML_READER_TYPE_CDATA:
            return u"a CDATA section";
        case XML_READER_TYPE_ENTITY_REFERENCE:
            return u"a reference to an entity";
        case XML_READER_TYPE_PROCESSING_INSTRUCTION:
            return u"a processing instruction";
        case XML_READER_TYPE_COMMENT:
            return u"a comment";
        case XML_READER_TYPE_DOCUMENT_TYPE:
            return u"a document type";
        default:
            return nullptr;
    }
}

[[noreturn]] void raiseLoss(const Path& file, const std::u16string& what) {
    raise<MetadataReadFailure>(file.text(), what + u", which would get lost when it is written again");
}

/// What is not well-formed is left to the reader of metadata.
void requireOnlyElements(const Path& file) {
    const Descriptor descriptor = openForReading(file);
    const std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> reader(
        xmlReaderForFd(descriptor.number(), nullptr, nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeTextReader);
    while (reader && xmlTextReaderRead(reader.get()) == 1) {
        if (const char16_t* const name = nameOfForeign(xmlTextReaderNodeType(reader.get()))) {
            const int line = xmlTextReaderGetParserLineNumber(reader.get());
            raiseLoss(file, u"it holds " + std::u16string(name) + u" in line " + host::fromUtf8(std::to_string(line)));
        }
    }
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
    requireOnlyElements(file);
    return project::metadata::readFromFile(file);
}

void requireNothingLost(const MetadataNode& read, const MetadataNode& rewritten, const Path& file) {
    const auto keys = rewritten.getAttributeKeys();
    for (const std::u16string& key : read.getAttributeKeys()) {
        if (!std::binary_search(keys.begin(), keys.end(), key) || read.get(key) != rewritten.get(key))
            raiseLoss(file, u"it holds an attribute \"" + key + u"\" of <" + read.getName() + u">");
    }
    const auto& children = rewritten.getChildNodes();
    for (std::size_t i = 0; i < read.getChildNodes().size(); ++i) {
        const MetadataNode& child = *read.getChildNodes()[i];
        if (i >= children.size() || children[i]->getName() != child.getName())
            raiseLoss(file, u"it holds <" + child.getName() + u"> in <" + read.getName() + u">");
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
