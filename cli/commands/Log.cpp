/// project-metadata log: who changed what in a path, from the history of git.

#include "cli/Command.hpp"
#include "cli/text/DiffText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/History.hpp"

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
    HistoryRequest request{path, flags.below, std::nullopt};
    if (flags.key)
        request.key = host::fromUtf8(*flags.key);
    CommandObserver observer;
    JsonList list;
    std::size_t count = 0;
    const auto visit = [&](const Revision& revision, const std::vector<PathDiff>& diffs) {
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
    const std::vector<Revision> unreadable = walkHistory(values.root, request, visit, observer);
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
