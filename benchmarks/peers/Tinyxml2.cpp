// tinyxml2, which keeps UTF-8 texts in the buffer it has read.

#include <tinyxml2.h>

#include <stdexcept>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

namespace {

struct TinyDocument : Document {
    void write(const std::string& file) const override {
        if (document->SaveFile(file.c_str()) != tinyxml2::XML_SUCCESS)
            throw std::runtime_error("tinyxml2 cannot write " + file);
    }

    std::unique_ptr<tinyxml2::XMLDocument> document = std::make_unique<tinyxml2::XMLDocument>();
};

}  // namespace

std::unique_ptr<Document> readWithTinyxml2(const std::string& file) {
    auto document = std::make_unique<TinyDocument>();
    if (document->document->LoadFile(file.c_str()) != tinyxml2::XML_SUCCESS)
        throw std::runtime_error("tinyxml2 cannot read " + file);
    return document;
}

}  // namespace benchmarks
