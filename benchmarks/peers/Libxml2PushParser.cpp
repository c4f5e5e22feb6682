// The push parser of libxml2, fed with blocks from a file stream and with nothing built: the least that reading through
// libxml2 can cost.

#include <libxml/parser.h>

#include <fstream>
#include <stdexcept>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

namespace {

void startElement(void* context, const xmlChar* name, const xmlChar* /*prefix*/, const xmlChar* /*uri*/,
                  int /*namespaceCount*/, const xmlChar** /*namespaces*/, int attributeCount, int /*defaultedCount*/,
                  const xmlChar** attributes) {
    std::size_t& count = *static_cast<std::size_t*>(context);
    count += name[0];
    // Each attribute is five pointers: name, prefix, URI, and where the value begins and ends.
    for (int i = 0; i < attributeCount; ++i, attributes += 5)
        count += static_cast<std::size_t>(attributes[0][0]) + attributes[3][0];
}

}  // namespace

std::unique_ptr<Document> visitWithPushParser(const std::string& file) {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = startElement;
    std::size_t count = 0;
    const std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> parser(
        xmlCreatePushParserCtxt(&handler, &count, nullptr, 0, nullptr), xmlFreeParserCtxt);
    std::ifstream stream(file, std::ios::binary);
    std::string block(64 * 1024, '\0');
    while (stream.read(block.data(), static_cast<std::streamsize>(block.size())).gcount() > 0)
        xmlParseChunk(parser.get(), block.data(), static_cast<int>(stream.gcount()), 0);
    xmlParseChunk(parser.get(), nullptr, 0, 1);
    if (parser->wellFormed == 0 || count == 0)
        throw std::runtime_error("libxml2 cannot read " + file);
    return nullptr;
}

}  // namespace benchmarks
