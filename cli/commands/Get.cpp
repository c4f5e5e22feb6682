/// project-metadata get: the value of one attribute, for scripts.

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "host/Text.hpp"
#include "operations/Project.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

bool hasKey(const pm::MetadataNode& node, const std::u16string& key) {
    const std::vector<std::u16string> keys = node.getAttributeKeys();
    return std::binary_search(keys.begin(), keys.end(), key);
}

Status get(const host::Path& root, const pm::MetadataPath& path, const std::string& keyText, bool json) {
    std::optional<Progress> progress("Reading");
    const auto store = operations::openProject(root);
    requirePath(*store, path);
    const std::u16string key = host::fromUtf8(keyText);
    const auto node = store->getNode(path);
    progress.reset();
    if (!node || !hasKey(*node, key)) {
        reportError(node ? "The node at \"" + formatPath(path) + "\" has no attribute \"" + keyText + '"'
                         : "There is no node at \"" + formatPath(path) + "\", only a branch");
        return Status::foundProblems;
    }
    const std::u16string& value = node->get(key);
    const bool isForPeople = isatty(STDOUT_FILENO) == 1;
    if (json)
        print(toJson(value).dump() + '\n');
    else
        print((isForPeople ? escapeText(value) : host::toUtf8(value)) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"PATH", "The node's path, as tree and find print it"}, {"KEY", "The attribute's key"}});
    return [positionals, json = addJson(app)] {
        const auto [root, texts] = positionals.get();
        return get(root, parsePath(texts[0]), texts[1], *json);
    };
}

const Command command(Group::look, "get", "Print the value of an attribute", configure);

}  // namespace

}  // namespace cli
