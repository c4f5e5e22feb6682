/// What a store holds, in a form that tests can compare and print.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "host/Text.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace test {

/// One path of a store with its node written out; without a node, the text is empty.
struct StoredPath {
    project::metadata::MetadataPath path;
    std::string node;

    friend bool operator==(const StoredPath& a, const StoredPath& b) { return a.path == b.path && a.node == b.node; }
    friend std::ostream& operator<<(std::ostream& out, const StoredPath& stored) {
        return out << host::toUtf8(stored.path.string()) << ' ' << stored.node;
    }
};

/// The name, attributes and children of `node`.
inline std::string describe(const project::metadata::MetadataNode& node) {
    std::string text = host::toUtf8(node.getName());
    for (const std::u16string& key : node.getAttributeKeys())
        text += ' ' + host::toUtf8(key) + '=' + host::toUtf8(node.get(key));
    for (const auto& child : node.getChildNodes())
        text += " (" + describe(*child) + ')';
    return text;
}

/// Every path of `store` but the root, level by level in its order.
inline std::vector<StoredPath> readContent(const project::metadata::MetadataManager& store) {
    std::vector<StoredPath> content;
    std::vector<project::metadata::MetadataPath> branches{{}};
    for (std::size_t i = 0; i < branches.size(); ++i) {
        for (const auto& path : store.getChildren(project::metadata::MetadataPath(branches[i]))) {
            const auto node = store.getNode(path);
            content.push_back({path, node ? describe(*node) : ""});
            branches.push_back(path);
        }
    }
    return content;
}

}  // namespace test
