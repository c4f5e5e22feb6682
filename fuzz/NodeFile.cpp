// Files of nodes: what is read can be written, and reads back the same.

#include "fuzz/Fuzz.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/EqualTrees.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string file = fuzz::scratch() + "/node.xml";
    fuzz::write(file, std::string(data, data + size));
    fuzz::attempt([&] {
        const host::Path path = host::Path::fromAccessName(file);
        const auto node = project::metadata::readFromFile(path);
        fuzz::require(project::metadata::readRootFromFile(path)->getName() == node->getName());
        project::metadata::writeToFile(*node, path, false);
        fuzz::require(store_support::equalTrees(*project::metadata::readFromFile(path), *node));
    });
    return 0;
}
