#include "cli/text/DiffText.hpp"

#include <vector>

#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Terminal.hpp"

namespace cli {

namespace {

/// Such as "node Info", or "node Info[2]" with the position 2.
std::string makeNodeName(const pm::MetadataNode& node, std::size_t position) {
    return "node " + escapeName(node.getName()) + (position == 0 ? "" : '[' + std::to_string(position) + ']');
}

}  // namespace

std::string makeLine(Sign sign, std::size_t level, const std::string& text) {
    const std::string indent(level * 4, ' ');
    if (sign == Sign::none)
        return indent + text + '\n';
    const Style style = sign == Sign::removed ? Style::red : sign == Sign::added ? Style::green : Style::yellow;
    return paint(style, indent + static_cast<char>(sign) + ' ' + text) + '\n';
}

std::string makeAttribute(const std::u16string& key, const std::u16string& value) {
    return escapeName(key) + '=' + quoteText(value);
}

void printNode(Sign sign, std::size_t level, const pm::MetadataNode& node, std::size_t position) {
    print(makeLine(sign, level, makeNodeName(node, position)));
    for (const std::u16string& key : node.getAttributeKeys())
        print(makeLine(sign, level + 1, makeAttribute(key, node.get(key))));
    for (const auto& child : node.getChildNodes())
        printNode(sign, level + 1, *child);
}

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

Json attributesToJson(const std::vector<AttributeDiff>& attributes) {
    Json json = Json::array();
    for (const AttributeDiff& attribute : attributes) {
        json.push_back({{"key", toJson(attribute.key)},
                        {"before", toJsonOrNull(attribute.before)},
                        {"after", toJsonOrNull(attribute.after)}});
    }
    return json;
}

Json nodeToJson(const NodeDiff& diff) {
    Json json{{"change", nameOfChange(diff.before, diff.after)}, {"position", diff.position}, {"moved", diff.isMoved}};
    json["before"] = toJsonOrNull(diff.before);
    json["after"] = toJsonOrNull(diff.after);
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
