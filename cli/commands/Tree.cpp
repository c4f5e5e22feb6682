/// project-metadata tree: a project's metadata paths as a tree.

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/TreeStore.hpp"
#include "operations/TreeWalk.hpp"

namespace cli {

namespace {

struct Arguments {
    std::optional<std::string> depth;
    bool attributes = false;
};

/// The path's last step; what stands above others is bold, and the type recedes.
std::string describeElement(const TreeWalk& walk) {
    const pm::PathElement& element = walk.path().getPath().back();
    const std::string type = formatElement({element.getType(), u""});
    const std::string location = formatElement(element).substr(type.size());
    return paint(Style::dim, type) + (walk.descends() ? paint(Style::bold, location) : location);
}

/// A value, in quotes where it would not be clear where it ends, or what it is.
std::string describeValue(const std::u16string& value) {
    std::string text = escapeText(value);
    return text.empty() || text.find_first_of(" \"\\") != std::string::npos ? quoteText(value) : text;
}

/// The name and the attributes of the path's node, to stand behind the path; empty without a node.
std::string describeNode(TreeWalk& walk) {
    const auto node = walk.readNode();
    if (!node)
        return walk.isUnreadable() ? paint(Style::red, "  (unreadable)") : "";
    std::string text = "  " + escapeName(node->getName());
    for (const std::u16string& key : node->getAttributeKeys())
        text += ' ' + escapeName(key) + '=' + describeValue(node->get(key));
    return paint(Style::dim, text);
}

void printTree(TreeWalk& walk, const host::Path& root, bool attributes, Progress& progress) {
    std::vector<std::string> indent;
    while (walk.next()) {
        progress.advance();
        std::string line;
        if (walk.depth() == 0) {
            line = walk.path().getPath().empty() ? escapeName(root.text()) : formatPath(walk.path());
        } else {
            indent.resize(walk.depth() - 1);
            for (const std::string& part : indent)
                line += part;
            line += (walk.isLast() ? "└── " : "├── ") + describeElement(walk);
            indent.emplace_back(walk.isLast() ? "    " : "│   ");
        }
        print(line + (attributes ? describeNode(walk) : "") + '\n');
    }
}

void printList(TreeWalk& walk, bool attributes, Progress& progress) {
    JsonList list;
    while (walk.next()) {
        progress.advance();
        const auto node = attributes ? walk.readNode() : nullptr;
        Json json = attributes ? toJson(walk.path(), node.get()) : toJson(walk.path());
        json["depth"] = walk.depth();
        if (walk.isUnreadable())
            json["unreadable"] = true;
        list.add(json);
    }
    list.end();
}

std::size_t parseDepth(const std::string& text) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
        throw CommandError(Status::usage, "--depth: \"" + text + "\" is no number of levels; see --help");
    return std::stoul(text);
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "Where to start; without, at the top", Positional::Kind::optional}},
                                  RootPlace::first, RootKind::projectOrFile);
    const auto arguments = std::make_shared<Arguments>();
    addOption(app, "--depth", arguments->depth, "How many levels to go down", "N");
    addFlag(app, "--attributes", arguments->attributes, "Print each node's name and attributes");
    return [positionals, arguments, json = addJson(app)] {
        const std::size_t depth = arguments->depth ? parseDepth(*arguments->depth) : TreeWalk::anyDepth;
        const auto [root, texts] = positionals.get();
        const pm::MetadataPath start = texts.empty() ? pm::MetadataPath() : parsePath(texts[0]);
        Progress progress("Reading");
        const InputFile input(root.accessName());
        CommandObserver observer;
        const auto store = openForReading(input.path(), observer);
        requirePath(*store, start);
        TreeWalk walk(*store, start, depth, reportReadError);
        progress.giveWay();
        if (*json)
            printList(walk, arguments->attributes, progress);
        else
            printTree(walk, root, arguments->attributes, progress);
        return reportUnreadable(walk.unreadableCount());
    };
}

const Command command(Group::look, "tree", "Print a project's metadata paths as a tree", configure);

}  // namespace

}  // namespace cli
