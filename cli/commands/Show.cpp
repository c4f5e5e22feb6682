/// project-metadata show: one node with all that it holds.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/Project.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

/// How many columns `text`, which is safe to show, takes: one for each character, as nearly all keys do.
std::size_t countColumns(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

void printNode(const pm::MetadataNode& node, const std::string& indent) {
    print(indent + paint(Style::bold, escapeName(node.getName())) + '\n');
    const std::vector<std::u16string> keys = node.getAttributeKeys();
    std::size_t width = 0;
    for (const std::u16string& key : keys)
        width = std::max(width, countColumns(escapeName(key)));
    for (const std::u16string& key : keys) {
        const std::string name = escapeName(key);
        const std::string gap(width - countColumns(name), ' ');
        print(indent + "    " + paint(Style::cyan, name) + gap + " = " + escapeText(node.get(key)) + '\n');
    }
    for (const auto& child : node.getChildNodes())
        printNode(*child, indent + "    ");
}

Status show(const host::Path& root, const pm::MetadataPath& path, bool json) {
    std::optional<Progress> progress("Reading");
    const auto store = operations::openProject(root);
    requirePath(*store, path);
    const auto node = store->getNode(path);
    const std::size_t childCount = store->getChildren(path).size();
    progress.reset();
    if (json) {
        Json object = toJson(path, node.get());
        object["childCount"] = childCount;
        printJson(object);
        return Status::done;
    }
    print(formatPath(path) + '\n');
    if (node)
        printNode(*node, "");
    else
        print("No node, only a branch\n");
    print(formatCount(childCount, "path") + " directly below\n");
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The node's path, as tree and find print it"}});
    return [positionals, json = addJson(app)] {
        const auto [root, texts] = positionals.get();
        return show(root, parsePath(texts[0]), *json);
    };
}

const Command command(Group::look, "show", "Print the node at a path", configure);

}  // namespace

}  // namespace cli
