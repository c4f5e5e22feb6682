/// project-metadata watch: prints changes as they happen.

#include "cli/Command.hpp"
#include "cli/text/DiffText.hpp"
#include "operations/Project.hpp"
#include "operations/ProjectWatch.hpp"
#include "operations/TreeWalk.hpp"

namespace cli {

namespace {

/// @return it never does
Status watch(const Positionals::Values& values, bool isJson) {
    const pm::MetadataPath top = values.texts.empty() ? pm::MetadataPath() : parsePath(values.texts[0]);
    Observer observer;  // what goes on is nothing to wait for
    ProjectWatch project(values.root, observer);
    if (!top.getPath().empty())
        requirePath(*openProject(values.root), top);
    if (!isJson)
        printNote("Watching; Ctrl-C ends it\n");
    for (;;) {
        flushOutput();
        for (const PathDiff& diff : project.wait()) {
            if (!isAtOrBelow(diff.path, top))
                continue;
            if (isJson)
                print(toJson(diff).dump() + '\n');
            else
                printDiff(diff);
        }
    }
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"PATH", "Only what changes in this path and below it; without, in all", Positional::Kind::optional}});
    return [positionals, isJson = addJson(app)] { return watch(positionals.get(), *isJson); };
}

const Command command(Group::look, "watch", "Print changes as they happen", configure);

}  // namespace

}  // namespace cli
