/// project-metadata move: renames a path, or moves it with everything below it.

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "host/Interruption.hpp"
#include "operations/DryRun.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "operations/TreeWalk.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::StoreChange;

/// Whether `path` is `top` or lies below it.
bool isAtOrBelow(const pm::MetadataPath& path, const pm::MetadataPath& top) {
    const auto& steps = path.getPath();
    const auto& topSteps = top.getPath();
    return steps.size() >= topSteps.size() && std::equal(topSteps.begin(), topSteps.end(), steps.begin());
}

void requireMovable(const pm::MetadataManager& store, const pm::MetadataPath& from, const pm::MetadataPath& to) {
    if (from.getPath().empty())
        throw CommandError(Status::usage, "The root path cannot be moved");
    requirePath(store, from);
    if (store.hasPath(to))
        throw CommandError(Status::failure, "There is a path \"" + formatPath(to) + "\" already");
    if (isAtOrBelow(to, from)) {
        throw CommandError(Status::usage,
                           '"' + formatPath(from) + "\" cannot be moved into itself, to \"" + formatPath(to) + '"');
    }
    if (!store.hasPath(to.getParent())) {
        throw CommandError(Status::failure, "There is no path \"" + formatPath(to.getParent()) +
                                                "\" to move to; \"project-metadata add\" adds it");
    }
}

/// What moves `from` to `to`: in its place if it stays below the same path, otherwise as the last there.
StoreChange findMove(const pm::MetadataManager& store, const pm::MetadataPath& from, const pm::MetadataPath& to) {
    Progress progress("Reading");
    StoreChange change;
    std::vector<pm::MetadataPath> kept;
    for (pm::MetadataPath& path : operations::listPaths(store, {}, progress)) {
        if (!isAtOrBelow(path, from)) {
            kept.push_back(std::move(path));
            continue;
        }
        std::vector<pm::PathElement> steps = to.getPath();
        const auto rest = path.getPath().begin() + static_cast<std::ptrdiff_t>(from.getPath().size());
        steps.insert(steps.end(), rest, path.getPath().end());
        pm::MetadataPath target(std::move(steps));
        if (from.getParent() == to.getParent())
            kept.push_back(target);
        if (auto node = store.getNode(path))
            change.nodes.emplace_back(target, std::move(node));
        progress.advance();
        change.removed.push_back(std::move(path));
        change.added.push_back(std::move(target));
    }
    if (from.getParent() != to.getParent())
        kept.insert(kept.end(), change.added.begin(), change.added.end());
    change.paths = std::move(kept);
    return change;
}

/// Makes `change`. If that fails after the nodes have been copied to `to`, they are removed from there again.
void makeMove(pm::MetadataManager& store, const StoreChange& change, const pm::MetadataPath& to) {
    const Progress progress("Moving");
    try {
        operations::applyChange(store, change);
    } catch (...) {
        host::Interruption::ignore();
        try {
            if (store.hasPath(to))
                store.removePath(to);
        } catch (const std::exception&) {
            reportError("A copy is left at \"" + formatPath(to) + "\", which cannot be removed again");
        }
        throw;
    }
}

Status move(const Positionals::Values& values, bool dryRun) {
    const pm::MetadataPath from = parsePath(values.texts[0]);
    const pm::MetadataPath to = parsePath(values.texts[1]);
    const auto store = operations::openProject(values.root);
    requireMovable(*store, from, to);
    const StoreChange change = findMove(*store, from, to);
    if (dryRun)
        operations::requireFeasible(*store, values.root, change);
    else
        makeMove(*store, change, to);
    printPaths(change);
    printNote((dryRun ? "Would move " : "Moved ") + formatCount(change.added.size(), "path") + ", from " +
              formatPath(from) + " to " + formatPath(to) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The path to move, with everything below it"},
                                        {"NEW-PATH", "What it is to be; its parent must exist"}});
    return [positionals, dryRun = addDryRun(app)] { return move(positionals.get(), *dryRun); };
}

const Command command(Group::change, "move", "Rename or move a path with everything below it", configure);

}  // namespace

}  // namespace cli
