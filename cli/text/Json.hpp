/// Metadata as JSON, for --json. docs/command.md describes what each command prints.
///
/// Texts that are no Unicode have U+FFFD where something is wrong; the member "path" of an object names its path
/// exactly. All functions but those that print may be called from any thread.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "cli/Names.hpp"
#include "operations/NodeAddress.hpp"

namespace cli {

/// Members keep the order in which they are put.
using Json = nlohmann::ordered_json;

Json toJson(const std::u16string& text);

/// A file's name: its text, with U+FFFD for bytes that are no UTF-8.
Json toJson(const host::Path& file);

/// The members "path" (as `formatPath`), "type" and "location" (null for the root path).
Json toJson(const pm::MetadataPath& path);

/// The members "name", "attributes" (an object) and "children" (a list of the same).
Json toJson(const pm::MetadataNode& node);

/// As `toJson(path)` of the address's path, with "path" as `formatAddress`.
Json toJson(const NodeAddress& address);

/// As `toJson(path)`, and the member "node": `node`, or null.
Json toJson(const pm::MetadataPath& path, const pm::MetadataNode* node);

/// As `toJson(*value)`; null where a pointer or an optional has none.
template <class Value>
Json toJsonOrNull(const Value& value) {
    return value ? toJson(*value) : Json(nullptr);
}

/// The address that `json`, a list of steps, is (PathText.hpp); no value if it is none.
std::optional<NodeAddress> addressFromJson(const std::string& json);

/// Prints `json` over several lines.
void printJson(const Json& json);

/// Prints a list one element a line, each as soon as it is there.
class JsonList {
public:
    void add(const Json& element);

    /// To be called at the end, also for an empty list.
    void end();

private:
    bool isEmpty_ = true;
};

}  // namespace cli
