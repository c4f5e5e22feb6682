/// Stores as the library finds them, and their content as text.
#pragma once

#include <deque>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/TempFolder.hpp"

namespace test {

using project::metadata::MetadataManager;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::PathElement;

inline std::vector<std::u16string> splitNames(const std::string& text) {
    std::vector<std::u16string> names;
    std::istringstream list(text);
    for (std::string name; list >> name;)
        names.push_back(host::fromUtf8(name));
    return names;
}

/// The names of the stores that are built.
inline std::vector<std::u16string> builtStores() {
    return splitNames(BUILT_STORES);
}

/// Those of them that keep everything in files of the project.
inline std::vector<std::u16string> fileStores() {
    return splitNames(FILE_STORES);
}

/// The end of the name of a test for one store.
inline std::string nameOfStore(const testing::TestParamInfo<std::u16string>& store) {
    return host::toUtf8(store.param);
}

inline std::unique_ptr<MetadataManager> openStore(const std::u16string& name, const host::Path& root) {
    const auto factory = project::metadata::getNamedFactory(name);
    if (!factory)
        throw std::runtime_error("no store " + host::toUtf8(name));
    return factory->createManager(root);
}

/// The path of steps of the type "t" at the given locations.
inline MetadataPath path(const std::vector<std::u16string>& locations) {
    std::vector<PathElement> elements;
    elements.reserve(locations.size());
    for (const std::u16string& location : locations)
        elements.emplace_back(u"t", location);
    return MetadataPath(elements);
}

inline std::u16string number(int value) {
    return host::fromUtf8(std::to_string(value));
}

inline std::shared_ptr<MetadataNode> node(const std::u16string& value, const std::u16string& name = u"Info") {
    auto result = std::make_shared<MetadataNodeSpecification>(name);
    result->put(u"Value", value);
    return result;
}

inline std::u16string describe(const MetadataNode& node) {
    std::u16string text = u"<" + node.getName();
    for (const std::u16string& key : node.getAttributeKeys())
        text += u" " + key + u"='" + node.get(key) + u"'";
    for (const auto& child : node.getChildNodes())
        text += describe(*child);
    return text + u">";
}

/// Every path, level by level, with its node or without.
using Content = std::vector<std::pair<MetadataPath, std::u16string>>;

inline Content read(const MetadataManager& store) {
    Content content;
    std::deque<MetadataPath> queue(1);
    while (!queue.empty()) {
        const MetadataPath path = queue.front();
        queue.pop_front();
        const auto node = store.getNode(path);
        if (store.hasNode(path) != (node != nullptr) || !store.hasPath(path))
            throw std::runtime_error("contradictory answers for " + host::toUtf8(path.string()));
        content.emplace_back(path, node ? describe(*node) : u"");
        for (const MetadataPath& child : store.getChildren(path))
            queue.push_back(child);
    }
    return content;
}

/// A readable form for small trees of `path`: "a b(1) b/c" for the locations and values in their order.
inline std::string outline(const MetadataManager& store, const MetadataPath& path = {},
                           const std::string& prefix = "") {
    std::string text;
    for (const MetadataPath& child : store.getChildren(path)) {
        const std::string name = prefix + host::toUtf8(child.getLeaf().getLocation());
        const auto node = store.getNode(child);
        text += (text.empty() ? "" : " ") + name + (node ? "(" + host::toUtf8(node->get(u"Value")) + ")" : "");
        const std::string below = outline(store, child, name + "/");
        text += (below.empty() ? "" : " ") + below;
    }
    return text;
}

}  // namespace test
