/// project-metadata merge: what two people have made of one project, or of one file, as one.

#include "operations/Merge.hpp"
#include "cli/Command.hpp"
#include "cli/Options.hpp"
#include "cli/Streams.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/DryRun.hpp"
#include "operations/NodeSettlement.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"

namespace cli {

namespace {

struct Arguments {
    std::string base, ours, theirs, output, label;
    std::vector<std::string> settled;  // a path and a side
    bool dryRun = false;
};

std::string describe(const Text& value) {
    return value ? quoteText(*value) : "none";
}

std::string describe(const Conflict& conflict) {
    std::string text = formatPath(conflict.path) + ": ";
    if (!conflict.node.empty())
        text += "node " + escapeName(conflict.node) + ": ";
    switch (conflict.what) {
        case Conflict::What::removed:
            return text + (conflict.ours ? "ours changed it, theirs removed it" : "ours removed it, theirs changed it");
        case Conflict::What::children:
            return text + "both changed child nodes " + quoteText(conflict.key) +
                   ", and nothing but their position tells which is which; those of both are kept";
        case Conflict::What::order:
            return text +
                   "both changed the order of what is in it, and no order agrees with both; that of ours is kept";
        case Conflict::What::attribute:
            text += escapeText(conflict.key);
            break;
        case Conflict::What::name:
            text += "the node's name";
            break;
        case Conflict::What::path:
            text += "the versions are of different paths";
            break;
    }
    return text + ": ours " + describe(conflict.ours) + ", theirs " + describe(conflict.theirs) + ", base " +
           describe(conflict.base);
}

Json describeAsJson(const Conflict& conflict) {
    const bool isRemoved = conflict.what == Conflict::What::removed;
    Json json = toJson(conflict.path);
    json["node"] = toJson(conflict.node);
    json["conflict"] = host::toUtf8(nameOfConflict(conflict.what));
    json["key"] = conflict.key.empty() ? Json(nullptr) : toJson(conflict.key);
    json["base"] = toJsonOrNull(conflict.base);
    json["ours"] = isRemoved ? Json(nullptr) : toJsonOrNull(conflict.ours);
    json["theirs"] = isRemoved ? Json(nullptr) : toJsonOrNull(conflict.theirs);
    json["removedBy"] = isRemoved ? Json(conflict.ours ? "theirs" : "ours") : Json(nullptr);
    return json;
}

void report(const Arguments& arguments, const std::vector<Conflict>& conflicts, bool isJson) {
    JsonList list;
    for (const Conflict& conflict : conflicts) {
        const std::string label =
            arguments.label.empty() ? "" : escapeName(host::Path::fromAccessName(arguments.label).text()) + ": ";
        if (isJson)
            list.add(describeAsJson(conflict));
        else
            print(paint(Style::red, "conflict") + ": " + label + describe(conflict) + '\n');
    }
    if (isJson)
        list.end();
    else if (!conflicts.empty())
        printNote(formatCount(conflicts.size(), "conflict") + ", each marked by a node \"" +
                  host::toUtf8(conflictName) + "\"\n");
}

Status merge(const Arguments& arguments, bool isJson) {
    CommandObserver observer;
    const InputFile base(arguments.base), ours(arguments.ours), theirs(arguments.theirs);
    // What comes from the standard input has no file that the result could go into.
    const bool isFiltering = arguments.ours == "-" && arguments.output.empty();
    const OutputFile output(isFiltering ? "-" : arguments.output);
    const bool hasOutput = isFiltering || !arguments.output.empty();
    const std::vector<Conflict> conflicts =
        mergeMetadata({base.path(), ours.path(), theirs.path(), hasOutput ? std::optional(output.path()) : std::nullopt,
                       arguments.dryRun},
                      observer);
    if (!output.isStandard())
        printIfRead([&] { report(arguments, conflicts, isJson); });
    else if (!arguments.dryRun)
        output.finish();
    return conflicts.empty() ? Status::done : Status::foundProblems;
}

Status settle(const host::Path& root, const Arguments& arguments, bool isJson) {
    const std::string& side = arguments.settled[1];
    if (side != "ours" && side != "theirs")
        throw CommandError(Status::usage, "A conflict is settled by \"ours\" or \"theirs\", not by \"" + side + '"');
    const pm::MetadataPath path = parsePath(arguments.settled[0]);
    const auto store = openProject(root);
    requirePath(*store, path);
    std::size_t count = 0;
    const auto find = [&] {
        StoreChange change;
        if (const auto node = store->getNode(path)) {
            auto settlement = settleConflicts(*node, side == "ours" ? MergeSide::ours : MergeSide::theirs);
            count = settlement.count;
            if (count > 0)
                change.nodes.emplace_back(path, std::move(settlement.node));
        }
        return change;
    };
    if (arguments.dryRun)
        requireFeasible(*store, root, find());
    else
        changeStore(*store, find);
    if (isJson)
        printJson({{"settled", count}});
    else if (count == 0)
        reportError("No conflict is marked in the node at \"" + formatPath(path) + '"');
    else
        printNote((arguments.dryRun ? "Would settle " : "Settled ") + formatCount(count, "conflict") + " at " +
                  formatPath(path) + '\n');
    return count == 0 ? Status::foundProblems : Status::done;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    const Operands operands(
        app,
        {{"BASE", "What both come from: a project's root folder, or a file of metadata"},
         {"OURS", "One of the two; it becomes the result, or, if it is -, the standard output does"},
         {"THEIRS", "The other one"}},
        1);
    addPairOption(app, "--settle", arguments->settled,
                  "In the project of the current folder, or the one that --root names, take one side in the conflicts "
                  "that are marked in the node at PATH, and remove the marks",
                  "PATH ours|theirs");
    addOption(app, "-o,--output", arguments->output,
              "Write the result into this file, - for the standard output, and leave OURS as it is", "FILE");
    addOption(app, "--label", arguments->label, "What to call the file where conflicts are told", "NAME");
    addFlag(app, "--dry-run", arguments->dryRun, "Tell the conflicts, and change nothing");
    setFooter(app, "Exit status: 0 merged, 1 merged with conflicts, 3 or more an error.");
    return [operands, arguments, isJson = addJson(app)] {
        if (!arguments->settled.empty()) {
            operands.requireNone("--settle");
            return settle(options().root ? host::Path::fromAccessName(*options().root) : findRoot(), *arguments,
                          *isJson);
        }
        const auto given = operands.get();
        arguments->base = *given[0];
        arguments->ours = *given[1];
        arguments->theirs = *given[2];
        return merge(*arguments, *isJson);
    };
}

const Command command(Group::compare, "merge", "Merge what two have made of one project or file", configure);

}  // namespace

}  // namespace cli
