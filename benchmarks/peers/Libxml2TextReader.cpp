// The text reader of libxml2 over callbacks on a file stream: bare, which is the least that reading through it can
// cost, and building trees.

#include <libxml/xmlreader.h>

#include <fstream>
#include <stdexcept>

#include "benchmarks/peers/PlainTree.hpp"
#include "benchmarks/peers/Utf8Tree.hpp"
#include "host/XmlText.hpp"

namespace benchmarks {

namespace {

int readFromStream(void* context, char* buffer, int size) {
    auto& stream = *static_cast<std::ifstream*>(context);
    stream.read(buffer, size);
    return stream.bad() ? -1 : static_cast<int>(stream.gcount());
}

int closeStream(void* context) {
    static_cast<std::ifstream*>(context)->close();
    return 0;
}

/// Calls `startElement(name, isEmpty)`, `attribute(name, value)` and `endElement()` for what is in `file`.
template <class Handler>
void visit(const std::string& file, Handler& handler) {
    std::ifstream stream(file, std::ios::binary);
    const std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> owner(
        xmlReaderForIO(readFromStream, closeStream, &stream, nullptr, nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeTextReader);
    xmlTextReader* reader = owner.get();
    int result = 0;
    while ((result = xmlTextReaderRead(reader)) == 1) {
        const int type = xmlTextReaderNodeType(reader);
        if (type == XML_READER_TYPE_ELEMENT) {
            handler.startElement(xmlTextReaderConstName(reader), xmlTextReaderIsEmptyElement(reader) == 1);
            while (xmlTextReaderMoveToNextAttribute(reader) == 1)
                handler.attribute(xmlTextReaderConstName(reader), xmlTextReaderConstValue(reader));
        } else if (type == XML_READER_TYPE_END_ELEMENT) {
            handler.endElement();
        }
    }
    if (result != 0)
        throw std::runtime_error("libxml2 cannot read " + file);
}

/// Sees every name and value, and keeps nothing.
struct Visitor {
    void startElement(const xmlChar* name, bool /*isEmpty*/) { count += name[0]; }
    void attribute(const xmlChar* name, const xmlChar* value) { count += static_cast<std::size_t>(name[0]) + value[0]; }
    void endElement() const {}

    std::size_t count = 0;
};

struct PlainTreeBuilder {
    void startElement(const xmlChar* name, bool isEmpty) {
        auto node = std::make_shared<PlainNode>();
        node->name = host::XmlText::toUtf16(name);
        current = node.get();
        (open.empty() ? root : open.back()->children.emplace_back()) = std::move(node);
        if (!isEmpty)
            open.push_back(current);
    }
    void attribute(const xmlChar* name, const xmlChar* value) {
        current->attributes.emplace(host::XmlText::toUtf16(name), host::XmlText::toUtf16(value));
    }
    void endElement() { open.pop_back(); }

    std::shared_ptr<PlainNode> root;
    PlainNode* current = nullptr;
    std::vector<PlainNode*> open;
};

struct Utf8TreeBuilder {
    void startElement(const xmlChar* name, bool isEmpty) {
        current = open.empty() ? &root : &open.back()->children.emplace_back();
        current->name = reinterpret_cast<const char*>(name);
        if (!isEmpty)
            open.push_back(current);
    }
    void attribute(const xmlChar* name, const xmlChar* value) {
        current->attributes.emplace(reinterpret_cast<const char*>(name), reinterpret_cast<const char*>(value));
    }
    void endElement() { open.pop_back(); }

    Utf8Node root;
    Utf8Node* current = nullptr;
    std::vector<Utf8Node*> open;
};

}  // namespace

std::unique_ptr<Document> visitWithTextReader(const std::string& file) {
    Visitor visitor;
    visit(file, visitor);
    if (visitor.count == 0)
        throw std::runtime_error("nothing in " + file);
    return nullptr;
}

std::unique_ptr<Document> readPlainTree(const std::string& file) {
    PlainTreeBuilder builder;
    visit(file, builder);
    auto document = std::make_unique<PlainDocument>();
    document->root = std::move(builder.root);
    return document;
}

Utf8Node readUtf8Tree(const std::string& file) {
    Utf8TreeBuilder builder;
    visit(file, builder);
    return std::move(builder.root);
}

}  // namespace benchmarks
