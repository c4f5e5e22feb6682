/// project-metadata diff: what is different between two projects or files of metadata.

#include <array>
#include <memory>
#include <string>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Options.hpp"
#include "cli/text/CommandObserver.hpp"
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

void printNodeDiff(std::size_t level, const NodeDiff& diff) {
    if (!diff.before || !diff.after) {
        printNode(diff.before ? Sign::removed : Sign::added, level, diff.before ? *diff.before : *diff.after,
                  diff.position);
        return;
    }
    if (diff.before->getName() == diff.after->getName()) {
        print(makeLine(Sign::changed, level, makeNodeName(*diff.after, diff.position)));
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
    print(makeLine(sign, 0, formatPath(diff.path) + (diff.isMoved ? "  (moved among its siblings)" : "")));
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
    Json json{{"change", nameOfChange(diff.before, diff.after)}, {"position", diff.position}};
    json["before"] = diff.before ? cli::toJson(*diff.before) : Json(nullptr);
    json["after"] = diff.after ? cli::toJson(*diff.after) : Json(nullptr);
    json["attributes"] = toJson(diff.attributes);
    json["children"] = Json::array();
    for (const NodeDiff& child : diff.children)
        json["children"].push_back(toJson(child));
    return json;
}

Json toJson(const PathDiff& diff) {
    Json json = cli::toJson(diff.path);
    json["change"] = nameOfChange(diff.before, diff.after);
    json["moved"] = diff.isMoved;
    json["attributes"] = toJson(diff.attributes);
    json["node"] = diff.node ? toJson(*diff.node) : Json(nullptr);
    return json;
}

Status diff(const std::string& a, const std::string& b, bool isJson) {
    CommandObserver observer;
    const MetadataTree before = operations::readTree(host::Path::fromAccessName(a), observer);
    const MetadataTree after = operations::readTree(host::Path::fromAccessName(b), observer);
    Progress progress("Comparing");
    const std::vector<PathDiff> diffs = operations::diffTrees(before, after);
    progress.giveWay();
    const Status status = diffs.empty() ? Status::done : Status::foundProblems;
    if (options().quiet)
        return status;
    JsonList list;
    for (const PathDiff& diff : diffs) {
        progress.advance();
        if (isJson)
            list.add(toJson(diff));
        else
            printDiff(diff);
    }
    if (isJson)
        list.end();
    return status;
}

Command::Action configure(CLI::App& app) {
    const auto places = std::make_shared<std::array<std::string, 2>>();
    addArgument(app, "A", (*places)[0], "A project's root folder, or a file of metadata", Need::required);
    addArgument(app, "B", (*places)[1], "What it is compared with, likewise", Need::required);
    setFooter(app, "Exit status: 0 no difference, 1 differences, 3 or more an error. With -q, prints nothing.");
    return [places, isJson = addJson(app)] { return diff((*places)[0], (*places)[1], *isJson); };
}

const Command command(Group::compare, "diff", "Compare two projects or files by path and attribute", configure);

}  // namespace

}  // namespace cli
