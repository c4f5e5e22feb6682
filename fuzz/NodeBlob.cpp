// Nodes as a database holds them: what is taken for one is what is written for it.

#include "stores/sqlite/NodeBlob.hpp"
#include "fuzz/Fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    if (const auto node = stores::sqlite::decodeNode(bytes))
        fuzz::require(stores::sqlite::encodeNode(*node) == bytes);
    return 0;
}
