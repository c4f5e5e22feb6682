/// project-metadata tree: a project's metadata paths as a tree.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "cli/Command.hpp"
#include "cli/Output.hpp"
#include "cli/Positionals.hpp"
#include "cli/Project.hpp"
#include "cli/SafeText.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

/// The children of one path, and how far they are printed.
struct Level {
    std::vector<pm::MetadataPath> children;
    std::size_t next;
    std::size_t indentLength;  // in bytes, of the lines before these children
};

/// Prints every path below the root path, each as soon as the store has given it.
void printTree(const pm::MetadataManager& store) {
    std::string indent;
    std::vector<Level> levels;
    levels.push_back({store.getChildren(pm::MetadataPath()), 0, 0});
    while (!levels.empty()) {
        Level& level = levels.back();
        indent.resize(level.indentLength);
        if (level.next == level.children.size()) {
            levels.pop_back();
            continue;
        }
        const pm::MetadataPath path = level.children[level.next++];
        const bool isLast = level.next == level.children.size();
        const pm::PathElement& leaf = path.getPath().back();
        print(indent + (isLast ? "└── " : "├── ") + escapeName(leaf.getType() + u':' + leaf.getLocation()) + '\n');

        std::vector<pm::MetadataPath> children = store.getChildren(path);
        if (!children.empty()) {
            indent += isLast ? "    " : "│   ";
            levels.push_back({std::move(children), 0, indent.size()});
        }
    }
}

Status tree(const host::Path& root) {
    const auto store = openProject(root);
    print(escapeName(root.text()) + '\n');
    printTree(*store);
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    return [positionals = Positionals(app)] { return tree(positionals.get().root); };
}

const Command command(Group::look, "tree", "Print a project's metadata paths as a tree", configure);

}  // namespace

}  // namespace cli
