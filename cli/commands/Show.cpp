/// project-metadata show: one node with all that it holds.

#include <algorithm>

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/TreeStore.hpp"

namespace cli {

namespace {

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

Status show(const host::Path& root, const NodeAddress& address, bool json) {
    std::optional<Progress> progress("Reading");
    const InputFile input(root.accessName());
    CommandObserver observer;
    const auto store = openForReading(input.path(), observer);
    requirePath(*store, address.path);
    const auto stored = store->getNode(address.path);
    const bool isInside = !address.inside.empty();
    const pm::MetadataNode* const node = isInside ? &requireNode(stored.get(), address) : stored.get();
    const std::size_t childCount = isInside ? 0 : store->getChildren(address.path).size();
    progress.reset();
    if (json) {
        Json object = toJson(address);
        object["node"] = toJsonOrNull(node);
        object["childCount"] = childCount;
        printJson(object);
        return Status::done;
    }
    print(formatAddress(address) + '\n');
    if (node)
        printNode(*node, "");
    else
        print("No node, only a branch\n");
    if (!isInside)
        print(formatCount(childCount, "path") + " directly below\n");
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"PATH", "The node's path, as tree and find print it, or the address of one in it"}},
                                  RootPlace::first, RootKind::projectOrFile);
    return [positionals, json = addJson(app)] {
        const auto [root, texts] = positionals.get();
        return show(root, parseAddress(texts[0]), *json);
    };
}

const Command command(Group::look, "show", "Print the node at a path", configure);

}  // namespace

}  // namespace cli
