#include "cli/text/Json.hpp"

#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"

namespace cli {

Json toJson(const std::u16string& text) {
    return host::toUtf8(text);
}

Json toJson(const host::Path& file) {
    return toJson(file.text());
}

Json toJson(const pm::MetadataPath& path) {
    Json json{{"path", formatPath(path)}, {"type", nullptr}, {"location", nullptr}};
    if (!path.getPath().empty()) {
        json["type"] = toJson(path.getPath().back().getType());
        json["location"] = toJson(path.getPath().back().getLocation());
    }
    return json;
}

Json toJson(const NodeAddress& address) {
    Json json = toJson(address.path);
    json["path"] = formatAddress(address);
    return json;
}

Json toJson(const pm::MetadataNode& node) {
    Json attributes = Json::object();
    for (const std::u16string& key : node.getAttributeKeys())
        attributes[host::toUtf8(key)] = toJson(node.get(key));
    Json children = Json::array();
    for (const auto& child : node.getChildNodes())
        children.push_back(toJson(*child));
    return {{"name", toJson(node.getName())}, {"attributes", std::move(attributes)}, {"children", std::move(children)}};
}

Json toJson(const pm::MetadataPath& path, const pm::MetadataNode* node) {
    Json json = toJson(path);
    json["node"] = toJsonOrNull(node);
    return json;
}

std::optional<NodeAddress> addressFromJson(const std::string& json) {
    const Json list = Json::parse(json, nullptr, false);
    if (!list.is_array())
        return std::nullopt;
    std::vector<pm::PathElement> elements;
    NodeAddress address;
    for (const Json& step : list) {
        if (!step.is_array() || step.empty() || step.size() > 2 || !step[0].is_string())
            return std::nullopt;
        const std::u16string name = host::fromUtf8(step[0].get<std::string>());
        if (step.size() == 2 && step[1].is_string() && address.inside.empty()) {
            elements.emplace_back(name, host::fromUtf8(step[1].get<std::string>()));
        } else if (step.size() == 1 || (step[1].is_number_unsigned() && step[1].get<std::size_t>() > 0)) {
            if (name.empty())
                return std::nullopt;
            address.inside.push_back({name, step.size() == 1 ? 0 : step[1].get<std::size_t>()});
        } else {
            return std::nullopt;
        }
    }
    address.path = pm::MetadataPath(elements);
    return address;
}

void printJson(const Json& json) {
    print(json.dump(2) + '\n');
}

void JsonList::add(const Json& element) {
    print((isEmpty_ ? "[\n" : ",\n") + element.dump());
    isEmpty_ = false;
}

void JsonList::end() {
    print(isEmpty_ ? "[]\n" : "\n]\n");
}

}  // namespace cli
