/// project-metadata diff: what is different between two projects or files of metadata.

#include <algorithm>

#include "cli/Command.hpp"
#include "cli/Options.hpp"
#include "cli/Streams.hpp"
#include "cli/text/DiffText.hpp"
#include "cli/text/Progress.hpp"
#include "operations/TreeDiff.hpp"
#include "operations/TreeWalk.hpp"

namespace cli {

namespace {

struct Arguments {
    std::string a, b;
    std::optional<std::string> path;
    bool isStat = false;
    bool isNameOnly = false;
};

bool hasPath(const MetadataTree& tree, const pm::MetadataPath& path) {
    const pm::MetadataPath root = tree.rootPath();
    const auto& steps = path.getPath();
    return isAtOrBelow(path, root) &&
           findPath(tree.root, pm::MetadataPath({steps.begin() + std::ptrdiff_t(root.getPath().size()), steps.end()}));
}

/// The differences that the arguments ask for.
std::vector<PathDiff> findDiffs(const Arguments& arguments, const MetadataTree& before, const MetadataTree& after) {
    std::vector<PathDiff> diffs = diffTrees(before, after);
    if (!arguments.path)
        return diffs;
    const pm::MetadataPath top = parsePath(*arguments.path);
    if (!hasPath(before, top) && !hasPath(after, top))
        throw CommandError(Status::failure, "There is no path \"" + formatPath(top) + "\" on either side");
    const auto isElsewhere = [&](const PathDiff& diff) { return !isAtOrBelow(diff.path, top); };
    diffs.erase(std::remove_if(diffs.begin(), diffs.end(), isElsewhere), diffs.end());
    return diffs;
}

void printCounts(const std::vector<PathDiff>& diffs, bool isJson) {
    std::size_t added = 0, removed = 0, changed = 0, moved = 0;
    for (const PathDiff& diff : diffs) {
        ++(!diff.before ? added : !diff.after ? removed : changed);
        moved += diff.isMoved ? 1 : 0;
    }
    if (isJson) {
        printJson({{"added", added}, {"removed", removed}, {"changed", changed}, {"moved", moved}});
        return;
    }
    print(formatCount(diffs.size(), "path") + ": " + std::to_string(added) + " added, " + std::to_string(removed) +
          " removed, " + std::to_string(changed) + " changed, of which " + std::to_string(moved) + " moved\n");
}

Status diff(const Arguments& arguments, bool isJson) {
    CommandObserver observer;
    const InputFile a(arguments.a), b(arguments.b);
    const MetadataTree before = readTree(a.path(), observer);
    const MetadataTree after = readTree(b.path(), observer);
    Progress progress("Comparing");
    const std::vector<PathDiff> diffs = findDiffs(arguments, before, after);
    progress.giveWay();
    const Status status = diffs.empty() ? Status::done : Status::foundProblems;
    if (options().quiet)
        return status;
    if (arguments.isStat) {
        printCounts(diffs, isJson);
        return status;
    }
    printIfRead([&] {
        JsonList list;
        for (const PathDiff& diff : diffs) {
            progress.advance();
            if (isJson)
                list.add(toJson(diff, arguments.isNameOnly ? DiffParts::name : DiffParts::all));
            else if (arguments.isNameOnly)
                print(formatPath(diff.path) + '\n');
            else
                printDiff(diff);
        }
        if (isJson)
            list.end();
    });
    return status;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    const Operands operands(app,
                            {{"A", "A project's root folder, or a file of metadata; - is the standard input"},
                             {"B", "What it is compared with, likewise"},
                             {"PATH", "Only what is different in this path and below it", Positional::Kind::optional}},
                            0);
    addFlag(app, "--stat", arguments->isStat, "Only count");
    addFlag(app, "--name-only", arguments->isNameOnly, "Only name the paths");
    setFooter(app, "Exit status: 0 no difference, 1 differences, 3 or more an error. With -q, prints nothing.");
    return [operands, arguments, isJson = addJson(app)] {
        const auto given = operands.get();
        arguments->a = *given[0];
        arguments->b = *given[1];
        arguments->path = given[2];
        return diff(*arguments, *isJson);
    };
}

const Command command(Group::compare, "diff", "Compare two projects or files by path and attribute", configure);

}  // namespace

}  // namespace cli
