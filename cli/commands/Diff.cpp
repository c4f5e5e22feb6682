/// project-metadata diff: what is different between two projects or files of metadata.

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Options.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/CommandObserver.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/NodeText.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "operations/TreeDiff.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::AttributeDiff;
using operations::MetadataTree;
using operations::NodeDiff;
using operations::PathDiff;

void printAttributes(std::size_t level, const std::vector<AttributeDiff>& attributes) {
    for (const AttributeDiff& attribute : attributes) {
        if (attribute.before)
            print(makeLine(Sign::removed, level, makeAttribute(attribute.key, *attribute.before)));
        if (attribute.after)
            print(makeLine(Sign::added, level, makeAttribute(attribute.key, *attribute.after)));
    }
}

const char* nameOfMove(bool isMoved) {
    return isMoved ? "  (moved among its siblings)" : "";
}

void printNodeDiff(std::size_t level, const NodeDiff& diff) {
    if (!diff.before || !diff.after) {
        printNode(diff.before ? Sign::removed : Sign::added, level, diff.before ? *diff.before : *diff.after,
                  diff.position);
        return;
    }
    if (diff.before->getName() == diff.after->getName()) {
        print(makeLine(Sign::changed, level, makeNodeName(*diff.after, diff.position) + nameOfMove(diff.isMoved)));
    } else {
        print(makeLine(Sign::removed, level, makeNodeName(*diff.before, 0)));
        print(makeLine(Sign::added, level, makeNodeName(*diff.after, 0)));
    }
    printAttributes(level + 1, diff.attributes);
    for (const NodeDiff& child : diff.children)
        printNodeDiff(level + 1, child);
}

const char* nameOfChange(bool isBefore, bool isAfter) {
    return isBefore && isAfter ? "changed" : isBefore ? "removed" : "added";
}

void printDiff(const PathDiff& diff) {
    const Sign sign = diff.before && diff.after ? Sign::changed : diff.before ? Sign::removed : Sign::added;
    print(makeLine(sign, 0, formatPath(diff.path) + nameOfMove(diff.isMoved)));
    printAttributes(1, diff.attributes);
    if (diff.node)
        printNodeDiff(1, *diff.node);
}

Json toJson(const std::optional<std::u16string>& text) {
    return text ? cli::toJson(*text) : Json(nullptr);
}

Json toJson(const std::vector<AttributeDiff>& attributes) {
    Json json = Json::array();
    for (const AttributeDiff& attribute : attributes) {
        json.push_back({{"key", cli::toJson(attribute.key)},
                        {"before", toJson(attribute.before)},
                        {"after", toJson(attribute.after)}});
    }
    return json;
}

Json toJson(const NodeDiff& diff) {
    Json json{{"change", nameOfChange(diff.before, diff.after)}, {"position", diff.position}, {"moved", diff.isMoved}};
    json["before"] = diff.before ? cli::toJson(*diff.before) : Json(nullptr);
    json["after"] = diff.after ? cli::toJson(*diff.after) : Json(nullptr);
    json["attributes"] = toJson(diff.attributes);
    json["children"] = Json::array();
    for (const NodeDiff& child : diff.children)
        json["children"].push_back(toJson(child));
    return json;
}

Json toJson(const PathDiff& diff, bool isNameOnly) {
    Json json = cli::toJson(diff.path);
    json["change"] = nameOfChange(diff.before, diff.after);
    json["moved"] = diff.isMoved;
    if (isNameOnly)
        return json;
    json["attributes"] = toJson(diff.attributes);
    json["node"] = diff.node ? toJson(*diff.node) : Json(nullptr);
    return json;
}

struct Arguments {
    std::string a, b;
    std::optional<std::string> path;
    bool isStat = false;
    bool isNameOnly = false;
};

/// Whether `path` is `top` or below it.
bool isWithin(const pm::MetadataPath& path, const pm::MetadataPath& top) {
    const auto& steps = path.getPath();
    const auto& begin = top.getPath();
    return steps.size() >= begin.size() && std::equal(begin.begin(), begin.end(), steps.begin());
}

bool hasPath(const MetadataTree& tree, const pm::MetadataPath& path) {
    const pm::MetadataPath root = tree.rootPath();
    if (!isWithin(path, root))
        return false;
    const operations::PathTree* at = &tree.root;
    for (std::size_t i = root.getPath().size(); i < path.getPath().size(); ++i) {
        const auto child =
            std::find_if(at->children.begin(), at->children.end(),
                         [&](const operations::PathTree& tried) { return tried.step == path.getPath()[i]; });
        if (child == at->children.end())
            return false;
        at = &*child;
    }
    return true;
}

/// The differences that the arguments ask for.
std::vector<PathDiff> findDiffs(const Arguments& arguments, const MetadataTree& before, const MetadataTree& after) {
    std::vector<PathDiff> diffs = operations::diffTrees(before, after);
    if (!arguments.path)
        return diffs;
    const pm::MetadataPath top = parsePath(*arguments.path);
    if (!hasPath(before, top) && !hasPath(after, top))
        throw CommandError(Status::failure, "There is no path \"" + formatPath(top) + "\" on either side");
    const auto isElsewhere = [&](const PathDiff& diff) { return !isWithin(diff.path, top); };
    diffs.erase(std::remove_if(diffs.begin(), diffs.end(), isElsewhere), diffs.end());
    return diffs;
}

void printCounts(const std::vector<PathDiff>& diffs, bool isJson) {
    std::size_t added = 0, removed = 0, changed = 0, moved = 0;
    for (const PathDiff& diff : diffs) {
        ++(!diff.before ? added : !diff.after ? removed : changed);
        moved += diff.isMoved ? 1 : 0;
    }
    if (isJson) {
        printJson({{"added", added}, {"removed", removed}, {"changed", changed}, {"moved", moved}});
        return;
    }
    print(formatCount(diffs.size(), "path") + ": " + std::to_string(added) + " added, " + std::to_string(removed) +
          " removed, " + std::to_string(changed) + " changed, of which " + std::to_string(moved) + " moved\n");
}

Status diff(const Arguments& arguments, bool isJson) {
    CommandObserver observer;
    const MetadataTree before = operations::readTree(host::Path::fromAccessName(arguments.a), observer);
    const MetadataTree after = operations::readTree(host::Path::fromAccessName(arguments.b), observer);
    Progress progress("Comparing");
    const std::vector<PathDiff> diffs = findDiffs(arguments, before, after);
    progress.giveWay();
    const Status status = diffs.empty() ? Status::done : Status::foundProblems;
    if (options().quiet)
        return status;
    if (arguments.isStat) {
        printCounts(diffs, isJson);
        return status;
    }
    JsonList list;
    for (const PathDiff& diff : diffs) {
        progress.advance();
        if (isJson)
            list.add(toJson(diff, arguments.isNameOnly));
        else if (arguments.isNameOnly)
            print(formatPath(diff.path) + '\n');
        else
            printDiff(diff);
    }
    if (isJson)
        list.end();
    return status;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    const Operands operands(app,
                            {{"A", "A project's root folder, or a file of metadata"},
                             {"B", "What it is compared with, likewise"},
                             {"PATH", "Only what is different in this path and below it", Positional::Kind::optional}},
                            0);
    addFlag(app, "--stat", arguments->isStat, "Only count");
    addFlag(app, "--name-only", arguments->isNameOnly, "Only name the paths");
    setFooter(app, "Exit status: 0 no difference, 1 differences, 3 or more an error. With -q, prints nothing.");
    return [operands, arguments, isJson = addJson(app)] {
        const auto given = operands.get();
        arguments->a = *given[0];
        arguments->b = *given[1];
        arguments->path = given[2];
        return diff(*arguments, *isJson);
    };
}

const Command command(Group::compare, "diff", "Compare two projects or files by path and attribute", configure);

}  // namespace

}  // namespace cli
