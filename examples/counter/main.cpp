/// Counts the starts of the pump's motor, for the project in the current folder.

#include <iostream>
#include <memory>
#include <string>

#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace pm = project::metadata;

int main() {
    // The store of the project in this folder, of whatever kind; none if there is no project.
    const auto store = pm::getMetadataManagerFor(u".");
    if (!store)
        return 1;
    const auto motor = pm::MetadataPathBuilder().add(u"Device", u"pump").add(u"Part", u"motor").build();
    // A copy, so it can be changed; it counts when it is stored again.
    auto node = store->getNode(motor);
    if (!node)
        node = std::make_unique<pm::MetadataNodeSpecification>(u"Info");
    const std::u16string& text = node->get(u"Starts");
    const int starts = (text.empty() ? 0 : std::stoi(host::toUtf8(text))) + 1;
    node->put(u"Starts", host::fromUtf8(std::to_string(starts)));
    store->setNode(motor, *node);
    std::cout << starts << '\n';
}
