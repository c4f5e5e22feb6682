// pugixml, which keeps UTF-8 texts in the buffer it has read; alone, and as the source of a tree in UTF-16.

#include <pugixml.hpp>

#include <stdexcept>

#include "benchmarks/peers/PlainTree.hpp"
#include "host/Text.hpp"

namespace benchmarks {

namespace {

struct PugiDocument : Document {
    void write(const std::string& file) const override {
        if (!document.save_file(file.c_str(), "    ", pugi::format_default, pugi::encoding_utf8))
            throw std::runtime_error("pugixml cannot write " + file);
    }

    pugi::xml_document document;
};

std::unique_ptr<PugiDocument> load(const std::string& file) {
    auto document = std::make_unique<PugiDocument>();
    if (!document->document.load_file(file.c_str()))
        throw std::runtime_error("pugixml cannot read " + file);
    return document;
}

std::shared_ptr<PlainNode> copy(const pugi::xml_node& element) {
    auto node = std::make_shared<PlainNode>();
    node->name = host::fromUtf8(element.name());
    for (const pugi::xml_attribute& attribute : element.attributes())
        node->attributes.emplace(host::fromUtf8(attribute.name()), host::fromUtf8(attribute.value()));
    for (const pugi::xml_node& child : element.children()) {
        if (child.type() == pugi::node_element)
            node->children.push_back(copy(child));
    }
    return node;
}

}  // namespace

std::unique_ptr<Document> readWithPugixml(const std::string& file) {
    return load(file);
}

std::unique_ptr<Document> readPlainTreeWithPugixml(const std::string& file) {
    auto document = std::make_unique<PlainDocument>();
    document->root = copy(load(file)->document.document_element());
    return document;
}

}  // namespace benchmarks
