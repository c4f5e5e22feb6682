// What the library does with its framework: it finds the stores in their plug-ins, and one keeps a node.
#include <stdexcept>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

extern "C" __attribute__((visibility("default"))) void use() {
    const auto factory = project::metadata::getNamedFactory(u"monolithic");
    if (!factory)
        throw std::runtime_error("the library found no store");
    const host::TempDirGuard folder(host::FileSystem::temp_directory_name().text(), u"two-frameworks-", u"");
    const auto store = factory->createManager(folder.getDirectoryName());
    store->setNode({}, project::metadata::MetadataNodeSpecification());
    if (!store->hasNode({}))
        throw std::runtime_error("the store lost its node");
}
