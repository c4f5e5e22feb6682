/// project-metadata find: the paths that have what is asked for.

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Glob.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "host/Text.hpp"
#include "operations/Project.hpp"
#include "operations/TreeWalk.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::TreeWalk;

struct Arguments {
    std::optional<std::string> type;
    std::optional<std::string> location;
    std::optional<std::string> node;
    std::vector<std::string> attributes;  // each a key, or a key, "=" and a pattern
    bool branches = false;
    bool ignoreCase = false;
};

/// What is asked for. All conditions on the path are tried before the node is read.
struct Query {
    explicit Query(const Arguments& arguments);

    bool matches(const pm::MetadataPath& path) const {
        return onElement.empty() || (!path.getPath().empty() && matchesAll(onElement, path.getPath().back()));
    }

    /// @param node null for a branch
    bool matches(const pm::MetadataNode* node) const { return matchesAll(onNode, node); }

    std::vector<std::function<bool(const pm::PathElement&)>> onElement;
    std::vector<std::function<bool(const pm::MetadataNode*)>> onNode;

private:
    template <class Conditions, class Thing>
    static bool matchesAll(const Conditions& conditions, const Thing& thing) {
        return std::all_of(conditions.begin(), conditions.end(), [&](const auto& holds) { return holds(thing); });
    }

    void addAttribute(const std::string& text, bool ignoreCase);
};

Query::Query(const Arguments& arguments) {
    const auto makeGlob = [&](const std::string& pattern) { return Glob(pattern, arguments.ignoreCase); };
    if (arguments.type) {
        onElement.emplace_back([glob = makeGlob(*arguments.type)](const pm::PathElement& element) {
            return glob.matches(element.getType());
        });
    }
    if (arguments.location) {
        onElement.emplace_back([glob = makeGlob(*arguments.location)](const pm::PathElement& element) {
            return glob.matches(element.getLocation());
        });
    }
    if (arguments.node) {
        onNode.emplace_back([glob = makeGlob(*arguments.node)](const pm::MetadataNode* node) {
            return node && glob.matches(node->getName());
        });
    }
    for (const std::string& attribute : arguments.attributes)
        addAttribute(attribute, arguments.ignoreCase);
    if (arguments.branches)
        onNode.emplace_back([](const pm::MetadataNode* node) { return !node; });
}

void Query::addAttribute(const std::string& text, bool ignoreCase) {
    const std::size_t end = text.find('=');
    const std::u16string key = host::fromUtf8(text.substr(0, end));
    const Glob glob(end == std::string::npos ? "*" : text.substr(end + 1), ignoreCase);
    onNode.emplace_back([key, glob](const pm::MetadataNode* node) {
        if (!node)
            return false;
        const std::vector<std::u16string> keys = node->getAttributeKeys();
        return std::binary_search(keys.begin(), keys.end(), key) && glob.matches(node->get(key));
    });
}

/// @return whether anything was found
bool printMatches(TreeWalk& walk, const Query& query, bool json, Progress& progress) {
    JsonList list;
    bool isFound = false;
    while (walk.next()) {
        progress.advance();
        if (!query.matches(walk.path()))
            continue;
        const bool isRoot = walk.path().getPath().empty();
        const bool isAsked = !query.onNode.empty();
        const auto node = isAsked || json || isRoot ? walk.readNode() : nullptr;
        // The root path is there in any project. An unreadable node is neither one that matches nor a branch.
        if (!node && (isRoot || (isAsked && walk.isUnreadable())))
            continue;
        if (!query.matches(node.get()))
            continue;
        isFound = true;
        progress.giveWay();
        if (!json) {
            print(formatPath(walk.path()) + '\n');
            continue;
        }
        Json match = toJson(walk.path(), node.get());
        if (walk.isUnreadable())
            match["unreadable"] = true;
        list.add(match);
    }
    progress.giveWay();
    if (json)
        list.end();
    return isFound;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "Where to start; without, at the top", Positional::Kind::optional}});
    const auto arguments = std::make_shared<Arguments>();
    addOption(app, "--type", arguments->type, "The type of the path's last step", "GLOB");
    addOption(app, "--location", arguments->location, "The location in the path's last step", "GLOB");
    addOption(app, "--attribute", arguments->attributes, "An attribute of the node; may be repeated", "KEY[=GLOB]");
    addOption(app, "--node", arguments->node, "The name of the node", "GLOB");
    addFlag(app, "--branches", arguments->branches, "Paths without a node");
    addFlag(app, "-i,--ignore-case", arguments->ignoreCase, "Match letters of either case");
    return [positionals, arguments, json = addJson(app)] {
        const auto [root, texts] = positionals.get();
        const pm::MetadataPath start = texts.empty() ? pm::MetadataPath() : parsePath(texts[0]);
        if (arguments->branches && (arguments->node || !arguments->attributes.empty()))
            throw CommandError(Status::usage,
                               "Branches have no node, so --branches goes with neither --node nor --attribute");
        Progress progress("Searching");
        const auto store = operations::openProject(root);
        requirePath(*store, start);
        TreeWalk walk(*store, start, TreeWalk::anyDepth, reportReadError);
        const bool isFound = printMatches(walk, Query(*arguments), *json, progress);
        return reportUnreadable(walk.unreadableCount(), isFound ? Status::done : Status::foundProblems);
    };
}

const Command command(Group::look, "find", "Find paths by type, location, node or attribute", configure);

}  // namespace

}  // namespace cli
