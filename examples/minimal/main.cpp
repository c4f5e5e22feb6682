/// Prints what lies at the top of the metadata of the project in the current folder.

#include <iostream>

#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"

int main() {
    const auto store = project::metadata::getMetadataManagerFor(u".");
    if (!store)
        return 1;
    for (const auto& path : store->getChildren({}))
        std::cout << host::toUtf8(path.string()) << '\n';
}
