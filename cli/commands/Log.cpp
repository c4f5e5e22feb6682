/// project-metadata log: who changed what in a path, from the history of git.

#include <algorithm>

#include "cli/Command.hpp"
#include "cli/text/DiffText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/History.hpp"
#include "operations/NodeEdit.hpp"

namespace cli {

namespace {

struct Flags {
    std::optional<std::string> key;
    bool below = false;
    std::shared_ptr<const bool> isJson;
};

std::string show(const std::string& bytes) {
    return escapeText(host::Path::fromAccessName(bytes).text());
}

/// Whether the attribute `key` of the path's node is different.
bool concerns(const PathDiff& diff, const std::u16string& key) {
    if (!diff.node)
        return false;
    const NodeDiff& node = *diff.node;
    if (!node.before || !node.after)
        return findAttribute(node.before, key) || findAttribute(node.after, key);
    return std::any_of(node.attributes.begin(), node.attributes.end(),
                       [&](const AttributeDiff& attribute) { return attribute.key == key; });
}

Json describe(const Revision& revision) {
    const auto text = [](const std::string& bytes) { return toJson(host::fromUtf8(bytes)); };
    return {{"commit", revision.commit},
            {"author", text(revision.author)},
            {"email", text(revision.email)},
            {"time", revision.time},
            {"subject", text(revision.subject)}};
}

void printHead(const Revision& revision) {
    print(paint(Style::bold, "commit " + revision.commit) + '\n' + show(revision.time) + "  " + show(revision.author) +
          " <" + show(revision.email) + ">  " + show(revision.subject) + '\n');
}

Status log(const Positionals::Values& values, const Flags& flags) {
    const pm::MetadataPath path = parsePath(values.texts[0]);
    const auto key = flags.key ? std::optional(host::fromUtf8(*flags.key)) : std::nullopt;
    CommandObserver observer;
    JsonList list;
    std::size_t count = 0;
    const auto visit = [&](const Revision& revision, std::vector<PathDiff> diffs) {
        const auto isOther = [&](const PathDiff& diff) { return key && !concerns(diff, *key); };
        diffs.erase(std::remove_if(diffs.begin(), diffs.end(), isOther), diffs.end());
        if (diffs.empty())
            return true;
        if (*flags.isJson) {
            Json json = describe(revision);
            json["changes"] = Json::array();
            for (const PathDiff& diff : diffs)
                json["changes"].push_back(toJson(diff));
            list.add(json);
        } else {
            print(count == 0 ? "" : "\n");
            printHead(revision);
            for (const PathDiff& diff : diffs)
                printDiff(diff, 1);
        }
        ++count;
        flushOutput();
        return true;
    };
    const std::vector<Revision> unreadable = walkHistory(values.root, {path, flags.below}, visit, observer);
    if (*flags.isJson)
        list.end();
    flushOutput();
    for (const Revision& revision : unreadable)
        reportError("The metadata of the commit " + revision.commit + " cannot be read; what it changed is not known");
    return count == 0 || !unreadable.empty() ? Status::foundProblems : Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The path, which need not be there any more"}});
    const auto flags = std::make_shared<Flags>();
    addOption(app, "--attribute", flags->key, "Only changes of this attribute of the node", "KEY");
    addFlag(app, "--below", flags->below, "Changes of what is below PATH, too");
    flags->isJson = addJson(app);
    return [positionals, flags] { return log(positionals.get(), *flags); };
}

const Command command(Group::compare, "log", "Show who changed what in a path, from the history of git", configure);

}  // namespace

}  // namespace cli
