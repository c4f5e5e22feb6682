/// project-metadata merge: what two people have made of one project, or of one file, as one.

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/text/CommandObserver.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Terminal.hpp"
#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/Project.hpp"
#include "operations/TreeDiff.hpp"
#include "operations/TreeMerge.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::Conflict;
using operations::MergeResult;
using operations::MetadataTree;
using operations::PathTree;

void listPaths(const PathTree& tree, const pm::MetadataPath& path, std::vector<pm::MetadataPath>& paths) {
    paths.push_back(path);
    for (const PathTree& child : tree.children)
        listPaths(child, operations::childPath(path, child.step), paths);
}

std::vector<pm::MetadataPath> listPaths(const PathTree& tree) {
    std::vector<pm::MetadataPath> paths;
    listPaths(tree, {}, paths);
    return paths;
}

/// Makes a store that holds `before` hold `after`, touching only what is different.
class ProjectUpdate {
public:
    ProjectUpdate(const PathTree& before, const PathTree& after) : paths_(listPaths(after)) {
        compare({}, &before, after);
        isRearranged_ = paths_ != listPaths(before);
    }

    void apply(pm::MetadataManager& store) const {
        // The nodes first: should the process be killed between these batches, more is there than should be, not less.
        if (!nodes_.empty())
            store.setNodes(nodes_);
        host::Interruption::ignore();
        for (const auto& [path, node] : others_)
            store.setNode(path, *node);
        if (isRearranged_)
            store.setPaths(paths_);
        for (const pm::MetadataPath& path : branches_)
            store.removeNode(path);
    }

private:
    void compare(const pm::MetadataPath& path, const PathTree* before, const PathTree& after) {
        const operations::NodePtr node = before ? before->node : nullptr;
        if (node && !after.node)
            branches_.push_back(path);
        if (after.node && !(node && operations::equalNodes(*node, *after.node)))
            addNode(path, std::const_pointer_cast<pm::MetadataNode>(after.node));
        std::map<pm::PathElement, const PathTree*> known;
        if (before) {
            for (const PathTree& child : before->children)
                known.emplace(child.step, &child);
        }
        for (const PathTree& child : after.children) {
            const auto found = known.find(child.step);
            compare(operations::childPath(path, child.step), found == known.end() ? nullptr : found->second, child);
        }
    }

    /// Different paths may be equivalent in the order of the map.
    void addNode(const pm::MetadataPath& path, std::shared_ptr<pm::MetadataNode> node) {
        if (nodes_.count(path) == 0)
            nodes_.emplace(path, std::move(node));
        else
            others_.emplace_back(path, std::move(node));
    }

    std::map<pm::MetadataPath, std::shared_ptr<pm::MetadataNode>> nodes_;
    std::vector<std::pair<pm::MetadataPath, std::shared_ptr<pm::MetadataNode>>> others_;
    std::vector<pm::MetadataPath> branches_;
    std::vector<pm::MetadataPath> paths_;
    bool isRearranged_ = false;
};

struct Arguments {
    std::string base, ours, theirs, output, label;
    bool dryRun = false;
};

std::string describe(const operations::Text& value) {
    return value ? quoteText(*value) : "none";
}

std::string describe(const Conflict& conflict) {
    std::string text = formatPath(conflict.path) + ": ";
    if (!conflict.node.empty())
        text += "node " + escapeName(conflict.node) + ": ";
    if (conflict.what == Conflict::What::removed)
        return text + (conflict.ours ? "ours changed it, theirs removed it" : "ours removed it, theirs changed it");
    text += conflict.what == Conflict::What::name ? "the node's name" : escapeText(conflict.key);
    return text + ": ours " + describe(conflict.ours) + ", theirs " + describe(conflict.theirs) + ", base " +
           describe(conflict.base);
}

Json toJson(const operations::Text& text) {
    return text ? cli::toJson(*text) : Json(nullptr);
}

Json toJson(const Conflict& conflict) {
    constexpr const char* names[] = {"attribute", "name", "removed"};
    const bool isRemoved = conflict.what == Conflict::What::removed;
    Json json = cli::toJson(conflict.path);
    json["node"] = cli::toJson(conflict.node);
    json["conflict"] = names[static_cast<int>(conflict.what)];
    json["key"] = conflict.what == Conflict::What::attribute ? cli::toJson(conflict.key) : Json(nullptr);
    json["base"] = toJson(conflict.base);
    json["ours"] = isRemoved ? Json(nullptr) : toJson(conflict.ours);
    json["theirs"] = isRemoved ? Json(nullptr) : toJson(conflict.theirs);
    json["removedBy"] = isRemoved ? Json(conflict.ours ? "theirs" : "ours") : Json(nullptr);
    return json;
}

/// Puts the result where it belongs, unless it is what is there already.
void store(const Arguments& arguments, const MetadataTree& ours, const MergeResult& result,
           pm::MetadataManager* project) {
    if (project) {
        const Progress progress("Storing");
        ProjectUpdate(ours.root, result.tree.root).apply(*project);
        return;
    }
    if (!arguments.output.empty())
        operations::writeTree(result.tree, host::Path::fromAccessName(arguments.output));
    else if (!operations::diffTrees(ours, result.tree).empty())
        operations::writeTree(result.tree, host::Path::fromAccessName(arguments.ours));
}

void report(const Arguments& arguments, const std::vector<Conflict>& conflicts, bool isJson) {
    JsonList list;
    for (const Conflict& conflict : conflicts) {
        const std::string label =
            arguments.label.empty() ? "" : escapeName(host::Path::fromAccessName(arguments.label).text()) + ": ";
        if (isJson)
            list.add(toJson(conflict));
        else
            print(paint(Style::red, "conflict") + ": " + label + describe(conflict) + '\n');
    }
    if (isJson)
        list.end();
    else if (!conflicts.empty())
        printNote(formatCount(conflicts.size(), "conflict") + ", each marked by a node \"" +
                  host::toUtf8(operations::conflictName) + "\"\n");
}

Status merge(const Arguments& arguments, bool isJson) {
    CommandObserver observer;
    const host::Path place = host::Path::fromAccessName(arguments.ours);
    const MetadataTree base = operations::readTree(host::Path::fromAccessName(arguments.base), observer);
    const MetadataTree theirs = operations::readTree(host::Path::fromAccessName(arguments.theirs), observer);
    std::unique_ptr<pm::MetadataManager> project;
    MetadataTree ours;
    if (operations::leadsToFolder(arguments.ours)) {
        if (!arguments.output.empty())
            throw CommandError(Status::usage, "The result of merging into the project " + quoted(place) +
                                                  " goes into the project, so -o cannot be given");
        project = operations::openProject(place);
        ours = operations::readTree(*project, place, observer);
    } else {
        ours = operations::readTree(place, observer);
    }
    const MergeResult result = operations::mergeTrees(base, ours, theirs);
    if (!arguments.dryRun)
        store(arguments, ours, result, project.get());
    report(arguments, result.conflicts, isJson);
    return result.conflicts.empty() ? Status::done : Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    addArgument(app, "BASE", arguments->base, "What both come from: a project's root folder, or a file of metadata",
                Need::required);
    addArgument(app, "OURS", arguments->ours, "One of the two; it becomes the result", Need::required);
    addArgument(app, "THEIRS", arguments->theirs, "The other one", Need::required);
    addOption(app, "-o,--output", arguments->output, "Write the result into this file, and leave OURS as it is",
              "FILE");
    addOption(app, "--label", arguments->label, "What to call the file where conflicts are told", "NAME");
    addFlag(app, "--dry-run", arguments->dryRun, "Tell the conflicts, and change nothing");
    setFooter(app, "Exit status: 0 merged, 1 merged with conflicts, 3 or more an error.");
    return [arguments, isJson = addJson(app)] { return merge(*arguments, *isJson); };
}

const Command command(Group::compare, "merge", "Merge what two have made of one project or file", configure);

}  // namespace

}  // namespace cli
