// This project's library.

#include "benchmarks/Peers.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace benchmarks {

namespace {

struct MetadataDocument : Document {
    void write(const std::string& file) const override {
        project::metadata::writeToFile(*root, host::Path::fromAccessName(file), false);
    }

    std::unique_ptr<project::metadata::MetadataNode> root;
};

}  // namespace

std::unique_ptr<Document> readWithProjectMetadata(const std::string& file) {
    auto document = std::make_unique<MetadataDocument>();
    document->root = project::metadata::readFromFile(host::Path::fromAccessName(file));
    return document;
}

}  // namespace benchmarks
