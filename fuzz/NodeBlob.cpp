// Nodes as databases hold them: what is taken for one is what is written for it.

#include "store_support/NodeBlob.hpp"
#include "fuzz/Fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static store_support::NodeDecoder decoder;
    const std::string bytes(data, data + size);
    const auto node = decoder.decode(bytes);
    fuzz::require(store_support::isNode(bytes) == (node != nullptr));
    if (node)
        fuzz::require(store_support::encodeNode(*node) == bytes);
    return 0;
}
