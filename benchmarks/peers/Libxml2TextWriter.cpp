// The text writer of libxml2 over callbacks on a file stream, with a tree that needs no conversion: the least that
// writing through it can cost.

#include <libxml/xmlwriter.h>

#include <fstream>
#include <stdexcept>

#include "benchmarks/Peers.hpp"
#include "benchmarks/peers/Utf8Tree.hpp"

namespace benchmarks {

namespace {

int writeToStream(void* context, const char* bytes, int count) {
    return static_cast<std::ofstream*>(context)->write(bytes, count) ? count : -1;
}

int closeStream(void* context) {
    static_cast<std::ofstream*>(context)->close();
    return 0;
}

const xmlChar* text(const std::string& utf8) {
    return reinterpret_cast<const xmlChar*>(utf8.c_str());
}

const std::string indent = "    ";

void writeElement(xmlTextWriter* writer, const Utf8Node& node) {
    xmlTextWriterStartElement(writer, text(node.name));
    for (const auto& [key, value] : node.attributes)
        xmlTextWriterWriteAttribute(writer, text(key), text(value));
    for (const Utf8Node& child : node.children)
        writeElement(writer, child);
    xmlTextWriterEndElement(writer);
}

struct Utf8Document : Document {
    void write(const std::string& file) const override {
        std::ofstream stream;
        stream.rdbuf()->pubsetbuf(nullptr, 0);
        stream.open(file, std::ios::binary);
        xmlTextWriter* writer = xmlNewTextWriter(xmlOutputBufferCreateIO(writeToStream, closeStream, &stream, nullptr));
        xmlTextWriterSetIndent(writer, 1);
        xmlTextWriterSetIndentString(writer, text(indent));
        xmlTextWriterStartDocument(writer, nullptr, "UTF-8", nullptr);
        writeElement(writer, root);
        xmlTextWriterEndDocument(writer);
        xmlFreeTextWriter(writer);
        if (!stream)
            throw std::runtime_error("libxml2 cannot write " + file);
    }

    Utf8Node root;
};

}  // namespace

std::unique_ptr<Document> readForTextWriter(const std::string& file) {
    auto document = std::make_unique<Utf8Document>();
    document->root = readUtf8Tree(file);
    return document;
}

}  // namespace benchmarks
