/// project-metadata get: the values of attributes, for scripts.

#include <unistd.h>

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/AttributeText.hpp"
#include "cli/text/Progress.hpp"
#include "operations/TreeStore.hpp"

namespace cli {

namespace {

struct Flags {
    std::optional<std::string> fallback;
    bool isNullSeparated = false;
    bool isBare = false;
    std::shared_ptr<const bool> isJson;
};

/// The value of `key`, or else what is to be taken for it; no value, which is reported, if there is neither.
/// @param node null for a branch
std::optional<std::u16string> findValue(const pm::MetadataNode* node, const NodeAddress& address,
                                        const std::string& key, const Flags& flags) {
    const std::u16string name = host::fromUtf8(key);
    if (auto value = findAttribute(node, name))
        return value;
    if (flags.fallback)
        return host::fromUtf8(*flags.fallback);
    reportError(node ? describeMissingKey(*node, address, name)
                     : "There is no node at \"" + formatAddress(address) + "\", only a branch");
    return std::nullopt;
}

void printText(const std::vector<std::u16string>& values, const Flags& flags) {
    const bool isForPeople = isatty(STDOUT_FILENO) == 1;
    const std::string end = flags.isNullSeparated ? std::string(1, '\0') : flags.isBare ? "" : "\n";
    for (const std::u16string& value : values)
        print((isForPeople ? escapeText(value) : host::toUtf8(value)) + end);
}

Status get(const Positionals::Values& arguments, const Flags& flags) {
    const NodeAddress address = parseAddress(arguments.texts[0]);
    const std::vector<std::string> keys(arguments.texts.begin() + 1, arguments.texts.end());
    if (flags.isBare && keys.size() > 1)
        throw CommandError(Status::usage, "-n is for one KEY; several values have something between them, such as -0");
    std::optional<Progress> progress("Reading");
    const InputFile input(arguments.root.accessName());
    CommandObserver observer;
    const auto store = openForReading(input.path(), observer);
    requirePath(*store, address.path);
    const auto stored = store->getNode(address.path);
    const pm::MetadataNode* const node = address.inside.empty() ? stored.get() : &requireNode(stored.get(), address);
    progress.reset();
    std::vector<std::u16string> values;
    for (const std::string& key : keys) {
        if (auto value = findValue(node, address, key, flags))
            values.push_back(std::move(*value));
    }
    if (values.size() < keys.size())
        return Status::foundProblems;
    if (!*flags.isJson) {
        printText(values, flags);
    } else if (keys.size() == 1) {
        print(toJson(values.front()).dump() + '\n');
    } else {
        Json json = Json::object();
        for (std::size_t i = 0; i < keys.size(); ++i)
            json[host::toUtf8(host::fromUtf8(keys[i]))] = toJson(values[i]);
        print(json.dump() + '\n');
    }
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"PATH", "The node's path, as tree and find print it, or the address of one in it"},
                                   {"KEY", "The attribute's key", Positional::Kind::list}},
                                  RootPlace::first, RootKind::projectOrFile);
    const auto flags = std::make_shared<Flags>();
    addOption(app, "--default", flags->fallback, "What to print for an attribute that is not there", "VALUE");
    addFlag(app, "-n,--no-newline", flags->isBare, "Print the value alone, without a line break");
    addFlag(app, "-0,--null", flags->isNullSeparated, "End each value with NUL, not with a line break");
    flags->isJson = addJson(app);
    return [positionals, flags] { return get(positionals.get(), *flags); };
}

const Command command(Group::look, "get", "Print the values of attributes", configure);

}  // namespace

}  // namespace cli
