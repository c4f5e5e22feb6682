/// What `find` is asked for: conditions on paths and nodes.
///
/// Main thread only.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cli/Names.hpp"

namespace cli {

class Query {
public:
    struct Manner {
        bool ignoreCase = false;
        bool isRegex = false;  ///< patterns are regular expressions, not GLOBs
    };

    /// @param options the conditions in their order, each the name of an option without its dashes and its value:
    ///        "type", "location", "name", "attribute", "branches", and between them "not" and "or"
    /// @throws CommandError with `Status::usage` saying what is wrong with one
    Query(const std::vector<std::pair<std::string, std::string>>& options, const Manner& manner);

    /// Whether it depends on the node of `path` if that matches. No value of the node then changes a no.
    enum class Need { nothing, node, noMatch };
    Need needFor(const pm::MetadataPath& path) const;

    /// @param node null for a branch
    /// @throws CommandError for a regular expression that takes too long
    bool matches(const pm::MetadataPath& path, const pm::MetadataNode* node) const;

private:
    /// All of these must hold.
    struct Alternative {
        std::vector<std::function<bool(const pm::MetadataPath&)>> onPath;
        std::vector<std::function<bool(const pm::MetadataNode*)>> onNode;
    };

    std::vector<Alternative> alternatives_;
};

}  // namespace cli
