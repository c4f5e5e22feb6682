// A file kept as its bytes: the least that writing it can cost.

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

namespace {

struct BytesDocument : Document {
    void write(const std::string& file) const override {
        std::ofstream stream(file, std::ios::binary);
        if (!stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
            throw std::runtime_error("cannot write " + file);
    }

    std::string bytes;
};

}  // namespace

std::unique_ptr<Document> readBytes(const std::string& file) {
    auto document = std::make_unique<BytesDocument>();
    std::ifstream stream(file, std::ios::binary);
    document->bytes.assign(std::istreambuf_iterator<char>(stream), {});
    return document;
}

}  // namespace benchmarks
