#include "cli/text/NodeText.hpp"

#include "cli/text/Output.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Terminal.hpp"

namespace cli {

std::string makeLine(Sign sign, std::size_t level, const std::string& text) {
    const std::string mark = sign == Sign::none ? "" : std::string{static_cast<char>(sign), ' '};
    const std::string line = std::string(level * 4, ' ') + mark + text;
    switch (sign) {
        case Sign::removed:
            return paint(Style::red, line) + '\n';
        case Sign::added:
            return paint(Style::green, line) + '\n';
        case Sign::changed:
            return paint(Style::yellow, line) + '\n';
        case Sign::none:
            break;
    }
    return line + '\n';
}

std::string makeAttribute(const std::u16string& key, const std::u16string& value) {
    return escapeName(key) + '=' + quoteText(value);
}

std::string makeNodeName(const pm::MetadataNode& node, std::size_t position) {
    return "node " + escapeName(node.getName()) + (position == 0 ? "" : '[' + std::to_string(position) + ']');
}

void printNode(Sign sign, std::size_t level, const pm::MetadataNode& node, std::size_t position) {
    print(makeLine(sign, level, makeNodeName(node, position)));
    for (const std::u16string& key : node.getAttributeKeys())
        print(makeLine(sign, level + 1, makeAttribute(key, node.get(key))));
    for (const auto& child : node.getChildNodes())
        printNode(sign, level + 1, *child);
}

}  // namespace cli
