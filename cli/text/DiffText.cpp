#include "cli/text/DiffText.hpp"

#include <optional>
#include <string>
#include <vector>

#include "cli/text/NodeText.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"

namespace cli {

using operations::AttributeDiff;
using operations::NodeDiff;
using operations::PathDiff;

namespace {

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

Json textToJson(const std::optional<std::u16string>& text) {
    return text ? toJson(*text) : Json(nullptr);
}

Json attributesToJson(const std::vector<AttributeDiff>& attributes) {
    Json json = Json::array();
    for (const AttributeDiff& attribute : attributes) {
        json.push_back({{"key", toJson(attribute.key)},
                        {"before", textToJson(attribute.before)},
                        {"after", textToJson(attribute.after)}});
    }
    return json;
}

Json nodeToJson(const NodeDiff& diff) {
    Json json{{"change", nameOfChange(diff.before, diff.after)}, {"position", diff.position}, {"moved", diff.isMoved}};
    json["before"] = diff.before ? toJson(*diff.before) : Json(nullptr);
    json["after"] = diff.after ? toJson(*diff.after) : Json(nullptr);
    json["attributes"] = attributesToJson(diff.attributes);
    json["children"] = Json::array();
    for (const NodeDiff& child : diff.children)
        json["children"].push_back(nodeToJson(child));
    return json;
}

}  // namespace

void printDiff(const PathDiff& diff, std::size_t level) {
    const Sign sign = diff.before && diff.after ? Sign::changed : diff.before ? Sign::removed : Sign::added;
    print(makeLine(sign, level, formatPath(diff.path) + nameOfMove(diff.isMoved)));
    printAttributes(level + 1, diff.attributes);
    if (diff.node)
        printNodeDiff(level + 1, *diff.node);
}

Json toJson(const PathDiff& diff, DiffParts parts) {
    Json json = toJson(diff.path);
    json["change"] = nameOfChange(diff.before, diff.after);
    json["moved"] = diff.isMoved;
    if (parts == DiffParts::name)
        return json;
    json["attributes"] = attributesToJson(diff.attributes);
    json["node"] = diff.node ? nodeToJson(*diff.node) : Json(nullptr);
    return json;
}

}  // namespace cli
