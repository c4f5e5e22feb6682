// Files of nodes: what is read, and what stores may keep of it, can be written and reads back the same.

#include <memory>

#include "fuzz/Fuzz.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/TreeRules.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string file = fuzz::scratch() + "/node.xml";
    const host::Path path = host::Path::fromAccessName(file);
    fuzz::write(file, std::string(data, data + size));
    std::unique_ptr<project::metadata::MetadataNode> node;
    if (!fuzz::attempt([&] { node = project::metadata::readFromFile(path); }))
        return 0;
    fuzz::require(project::metadata::readRootFromFile(path)->getName() == node->getName());
    if (!fuzz::attempt([&] { store_support::requireStorable(*node, path); }))
        return 0;
    project::metadata::writeToFile(*node, path, false);
    fuzz::require(store_support::equalTrees(*project::metadata::readFromFile(path), *node));
    return 0;
}
