// The document object model of libxml2.

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <stdexcept>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

namespace {

struct DomDocument : Document {
    void write(const std::string& file) const override {
        if (xmlSaveFormatFileEnc(file.c_str(), document.get(), "UTF-8", 1) < 0)
            throw std::runtime_error("libxml2 cannot write " + file);
    }

    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document{nullptr, xmlFreeDoc};
};

}  // namespace

std::unique_ptr<Document> readWithLibxml2Dom(const std::string& file) {
    auto document = std::make_unique<DomDocument>();
    document->document.reset(xmlReadFile(file.c_str(), nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (!document->document)
        throw std::runtime_error("libxml2 cannot read " + file);
    return document;
}

}  // namespace benchmarks
