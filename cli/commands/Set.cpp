/// project-metadata set: gives the node of a path attributes.

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/SafeText.hpp"
#include "host/Text.hpp"
#include "operations/DryRun.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

struct Flags {
    bool create = false;
    std::optional<std::string> nodeName;
    std::shared_ptr<const bool> dryRun;
};

/// The text that `bytes` from the command line spell.
/// @param what what it is to be, for the error sentence
std::u16string readText(const std::string& bytes, const std::string& what) {
    std::u16string text = host::fromUtf8(bytes);
    if (host::toUtf8(text) != bytes)
        throw CommandError(Status::usage, what + " in \"" + bytes + "\" is not valid UTF-8");
    return text;
}

/// @param pair a key and a value, joined by "="
std::pair<std::u16string, std::u16string> parsePair(const std::string& pair) {
    const std::size_t mark = pair.find('=');
    if (mark == std::string::npos)
        throw CommandError(Status::usage, '"' + pair + "\" is no attribute such as Owner=Ann: it has no \"=\"");
    std::u16string key = readText(pair.substr(0, mark), "The key");
    std::u16string value = readText(pair.substr(mark + 1), "The value");
    if (!pm::isValidKey(key)) {
        throw CommandError(Status::usage, "The key in \"" + pair +
                                              "\" is no XML name: a letter, \"_\" or \":\", then letters, digits and "
                                              "\".\", \"-\", \"_\", \":\"");
    }
    if (!pm::isValidAttribute(value))
        throw CommandError(Status::usage, "The value in \"" + pair + "\" has characters that metadata cannot hold");
    return {std::move(key), std::move(value)};
}

/// The node at `path`, or the one that it is to get.
std::unique_ptr<pm::MetadataNode> readNode(const pm::MetadataManager& store, const pm::MetadataPath& path,
                                           const Flags& flags) {
    if (!flags.create && !store.hasPath(path))
        throw CommandError(Status::failure, "There is no path \"" + formatPath(path) + "\"; --create adds it");
    std::unique_ptr<pm::MetadataNode> node = store.getNode(path);
    const auto wanted = flags.nodeName ? std::optional(readText(*flags.nodeName, "The node's name")) : std::nullopt;
    if (!node)
        return std::make_unique<pm::MetadataNodeSpecification>(wanted.value_or(pm::getDefaultMetadataNodeName()));
    if (wanted && *wanted != node->getName()) {
        throw CommandError(Status::failure, "The node at \"" + formatPath(path) + "\" has the name \"" +
                                                escapeText(node->getName()) + "\", which cannot be changed to \"" +
                                                *flags.nodeName + '"');
    }
    return node;
}

Status set(const Positionals::Values& values, const Flags& flags) {
    const pm::MetadataPath path = parsePath(values.texts[0]);
    operations::AttributeChanges changes;
    for (auto text = values.texts.begin() + 1; text != values.texts.end(); ++text) {
        auto [key, value] = parsePair(*text);
        changes[std::move(key)] = std::move(value);
    }
    const auto store = operations::openProject(values.root);
    const auto find = [&] {
        operations::StoreChange change;
        change.nodes.emplace_back(path, operations::changeAttributes(*readNode(*store, path, flags), changes));
        return change;
    };
    if (*flags.dryRun)
        operations::requireFeasible(*store, values.root, find());
    else
        operations::changeStore(*store, find);
    for (const auto& [key, value] : changes) {
        printNote(formatPath(path) + (*flags.dryRun ? " would get " : " has ") + escapeText(key) + '=' +
                  escapeText(*value) + '\n');
    }
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"PATH", "The path of the node"},
              {"KEY=VALUE", "An attribute and its value; one that exists is replaced", Positional::Kind::list}});
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "--create", flags->create, "Add the path if it does not exist, with its ancestors");
    addOption(app, "--node", flags->nodeName, "The name of a node that is made; without, Info", "NAME");
    flags->dryRun = addDryRun(app);
    return [positionals, flags] { return set(positionals.get(), *flags); };
}

const Command command(Group::change, "set", "Set attributes of a path's node, which is made if it is missing",
                      configure);

}  // namespace

}  // namespace cli
