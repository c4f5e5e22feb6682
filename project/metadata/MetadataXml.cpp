// The file format: one XML 1.0 document, in UTF-8, per tree.
//
//     <?xml version="1.0" encoding="UTF-8"?>
//     <Example Name="A &amp; B" Version="2">
//         <Info/>
//     </Example>
//
// One element per node, named after it; one attribute per attribute, in the order of `getAttributeKeys()`, in double
// quotes, escaped as libxml2 does; child elements in the order of the child nodes. Four spaces per level, an element
// without children as an empty-element tag, a line break after each end tag; with the compact ending, none after the
// root's. Text, comments, CDATA and processing instructions are not written, and ignored when a file is read.

#include "project/metadata/MetadataXml.hpp"

#include <deque>

#include <libxml/parser.h>
#include <libxml/xmlreader.h>
#include <libxml/xmlwriter.h>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/XmlText.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace project::metadata {

namespace {

/// libxml2 wants to be initialised once, before any thread uses it.
void initialiseXml() {
    static const bool initialised = (xmlInitParser(), true);
    static_cast<void>(initialised);
}

/// Keeps libxml2 from printing on this thread: failures of streams go past its parser options. What a host has set
/// comes back at the end.
class SilentXmlErrors {
public:
    SilentXmlErrors() : handler_(xmlStructuredError), context_(xmlStructuredErrorContext) {
        xmlSetStructuredErrorFunc(nullptr, [](void* /*context*/, xmlError* /*error*/) {});
    }
    ~SilentXmlErrors() { xmlSetStructuredErrorFunc(context_, handler_); }

    SilentXmlErrors(const SilentXmlErrors&) = delete;
    SilentXmlErrors& operator=(const SilentXmlErrors&) = delete;

private:
    xmlStructuredErrorFunc handler_;
    void* context_;
};

template <class Stream>
int closeStream(void* context) {
    auto& stream = *static_cast<Stream*>(context);
    stream.close();  // sets the fail state itself if flushing or closing fails
    return 0;
}

int writeToStream(void* context, const char* bytes, int count) {
    auto& stream = *static_cast<host::OutputFileStream*>(context);
    stream.write(bytes, count);
    return stream.fail() ? -1 : count;
}

int readFromStream(void* context, char* buffer, int size) {
    auto& stream = *static_cast<host::InputFileStream*>(context);
    stream.sync();
    stream.read(buffer, size);
    // A short last block sets the fail state along with end-of-file; a read error does not set end-of-file.
    return stream.fail() && !stream.eof() ? -1 : static_cast<int>(stream.gcount());
}

struct WriterDeleter {
    void operator()(xmlTextWriter* writer) const { xmlFreeTextWriter(writer); }
};

struct ReaderDeleter {
    void operator()(xmlTextReader* reader) const { xmlFreeTextReader(reader); }
};

using Writer = std::unique_ptr<xmlTextWriter, WriterDeleter>;
using Reader = std::unique_ptr<xmlTextReader, ReaderDeleter>;

/// Whether the system calls would take the name of `file` to end too early, and so mean another file.
bool isCutOff(const host::Path& file) {
    return file.text().find(u'\0') != std::u16string::npos;
}

/// Null if there is not enough memory.
Writer makeWriter(host::OutputFileStream& stream) {
    xmlOutputBuffer* buffer =
        xmlOutputBufferCreateIO(writeToStream, closeStream<host::OutputFileStream>, &stream, nullptr);
    Writer writer(buffer ? xmlNewTextWriter(buffer) : nullptr);
    if (buffer && !writer)
        xmlOutputBufferClose(buffer);
    return writer;
}

// What fails in here shows when the writer is flushed: its buffer remembers.
void writeElement(xmlTextWriter* writer, const MetadataNode& node, bool compactEnding) {
    xmlTextWriterStartElement(writer, host::XmlText(node.getName()).get());
    for (const std::u16string& key : node.getAttributeKeys())
        xmlTextWriterWriteAttribute(writer, host::XmlText(key).get(), host::XmlText(node.get(key)).get());
    for (const std::shared_ptr<MetadataNode>& child : node.getChildNodes())
        writeElement(writer, *child, false);
    if (compactEnding)
        xmlTextWriterSetIndent(writer, 0);
    xmlTextWriterEndElement(writer);
}

bool tryToWrite(const MetadataNode& node, const host::Path& file, bool compactEnding) {
    if (isCutOff(file))
        return false;
    const SilentXmlErrors silent;
    host::OutputFileStream stream;
    // Unbuffered: libxml2 hands over whole blocks, and a full disk must show in the call that writes them.
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(file.accessName(), std::ios::out | std::ios::trunc | std::ios::binary);

    Writer writer = makeWriter(stream);
    if (!writer)
        return false;
    xmlTextWriterSetIndent(writer.get(), 1);
    xmlTextWriterSetIndentString(writer.get(), host::XmlText(u"    ").get());
    xmlTextWriterSetQuoteChar(writer.get(), '"');
    xmlTextWriterStartDocument(writer.get(), nullptr, "UTF-8", nullptr);
    writeElement(writer.get(), node, compactEnding);
    // Without indentation, ending the document would add the line break that the compact ending leaves out.
    const int written = compactEnding ? xmlTextWriterFlush(writer.get()) : xmlTextWriterEndDocument(writer.get());
    writer.reset();
    return written >= 0 && !stream.fail();
}

void makeWritable(const host::Path& path) {
    handleReadOnlyFile(path);
    if (host::FileUtils::isReadOnlyNoExcept(path))
        raise<ReadOnlyMetadataFailure>(path.text());
}

std::u16string currentName(xmlTextReader* reader) {
    return host::XmlText::toUtf16(xmlTextReaderConstName(reader));
}

/// Builds a tree from the elements that a reader comes by.
class TreeBuilder {
public:
    void startElement(xmlTextReader* reader) {
        MetadataNode& node = addNode(currentName(reader));
        if (xmlTextReaderIsEmptyElement(reader) == 0)
            open_.push_back(&node);
        while (xmlTextReaderMoveToNextAttribute(reader) == 1)
            node.put(currentName(reader), host::XmlText::toUtf16(xmlTextReaderConstValue(reader)));
    }

    void endElement() {
        if (!open_.empty())
            open_.pop_back();
    }

    std::unique_ptr<MetadataNode> takeRoot() { return std::move(root_); }

private:
    MetadataNode& addNode(std::u16string name) {
        if (root_)
            return open_.back()->createChildNode(std::move(name));
        root_ = std::make_unique<MetadataNodeSpecification>(std::move(name));
        return *root_;
    }

    std::unique_ptr<MetadataNode> root_;
    std::deque<MetadataNode*> open_;
};

}  // namespace

void writeToFile(const MetadataNode& node, const host::Path& file, bool compactEnding) {
    initialiseXml();
    const host::Path folder = getParentFolder(file);
    if (!host::FileUtils::existNoExcept(folder))
        makeFolder(folder);
    if (tryToWrite(node, file, compactEnding))
        return;

    const host::Path& obstacle = host::FileUtils::existNoExcept(file) ? file : folder;
    if (host::FileUtils::isReadOnlyNoExcept(obstacle)) {
        makeWritable(obstacle);
        if (tryToWrite(node, file, compactEnding))
            return;
    }
    raise<MetadataWriteFailure>(file.text(), getCauseMessage());
}

std::unique_ptr<MetadataNode> readFromFile(const host::Path& file) {
    initialiseXml();
    if (isCutOff(file))
        raise<MetadataReadFailure>(file.text(), getCauseMessage());
    const SilentXmlErrors silent;
    host::InputFileStream stream(file.accessName(), std::ios::in | std::ios::binary);
    const Reader reader(xmlReaderForIO(readFromStream, closeStream<host::InputFileStream>, &stream, nullptr, nullptr,
                                       XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (stream.fail() || !reader)
        raise<MetadataReadFailure>(file.text(), getCauseMessage());

    TreeBuilder tree;
    int result = 0;
    while ((result = xmlTextReaderRead(reader.get())) == 1) {
        const int type = xmlTextReaderNodeType(reader.get());
        if (type == XML_READER_TYPE_ELEMENT)
            tree.startElement(reader.get());
        else if (type == XML_READER_TYPE_END_ELEMENT)
            tree.endElement();
    }
    if (result != 0)
        raise<MetadataReadFailure>(file.text(), getCauseMessage());
    return tree.takeRoot();
}

}  // namespace project::metadata
