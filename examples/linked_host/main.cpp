/// Checks that this host keeps the contract of a host, and that the library works with it.

#include <iostream>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "host_testing/HostContract.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataOptions.hpp"

int main() {
    int failures = 0;
    for (const host_testing::Rule& rule : host_testing::getRules()) {
        if (const auto breach = host_testing::findBreach(rule)) {
            std::cerr << rule.name << ": " << *breach << '\n';
            ++failures;
        }
    }

    const host::TempDirGuard folder(host::FileSystem::temp_directory_name().text(), u"linked-host-", u"");
    for (const auto& factory : project::metadata::getRegisteredFactories()) {
        const host::Path root = host::Path(folder.getDirectoryName()) / host::Path(factory->getName());
        host::FileSystem::create_directories(root);
        const auto made = factory->createManager(root);
        if (dynamic_cast<const project::metadata::MetadataOptions*>(made.get()))
            continue;  // it asks for a server
        made->setNode({}, project::metadata::MetadataNodeSpecification(u"Pump"));
        const auto store = project::metadata::getMetadataManagerFor(root);
        if (!store || store->getNode({})->getName() != u"Pump") {
            std::cerr << "A store lost its node in " << root.accessName() << '\n';
            ++failures;
        }
    }
    if (!project::metadata::getDefaultFactory()) {
        std::cerr << "There is no store\n";
        ++failures;
    }
    return failures;
}
