/// project-metadata remove: removes paths with everything below them.

#include <iterator>
#include <memory>
#include <string>
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

struct Flags {
    bool force = false;
    bool node = false;
    std::shared_ptr<const bool> dryRun;
};

/// Those of `texts` that exist, and have a node if that is to go. The others are reported.
std::vector<pm::MetadataPath> findPaths(const pm::MetadataManager& store, const std::vector<std::string>& texts,
                                        const Flags& flags) {
    std::vector<pm::MetadataPath> paths;
    for (const std::string& text : texts) {
        pm::MetadataPath path = parsePath(text);
        if (path.getPath().empty() && !flags.force && !flags.node)
            throw CommandError(Status::usage, "Removing the root path removes all metadata; that needs --force");
        if (flags.node ? store.hasNode(path) : store.hasPath(path))
            paths.push_back(std::move(path));
        else if (!flags.force)
            reportError("There is no " + std::string(flags.node ? "node at" : "path") + " \"" + formatPath(path) +
                        "\"; nothing is removed");
    }
    return paths;
}

/// Each in a batch of its own.
void removeNodes(pm::MetadataManager& store, const std::vector<pm::MetadataPath>& paths) {
    for (const pm::MetadataPath& path : paths) {
        store.removeNode(path);
        host::Interruption::ignore();
    }
}

Status remove(const Positionals::Values& values, const Flags& flags) {
    const auto store = operations::openProject(values.root);
    const std::vector<pm::MetadataPath> paths = findPaths(*store, values.texts, flags);
    if (paths.size() < values.texts.size() && !flags.force)
        return Status::foundProblems;

    // A path may be named twice, and one that lies below another.
    operations::StoreChange change;
    std::vector<pm::MetadataPath>& list = flags.node ? change.updated : change.removed;
    {
        Progress progress("Reading");
        operations::PathSet seen;
        for (const pm::MetadataPath& path : paths) {
            auto gone = flags.node ? std::vector{path} : operations::listPaths(*store, path, progress);
            for (pm::MetadataPath& each : gone) {
                if (seen.insert(each).second)
                    list.push_back(std::move(each));
            }
        }
    }
    if (*flags.dryRun) {
        change.paths.emplace();
        operations::requireFeasible(*store, values.root, change);
    } else {
        const Progress progress("Removing");
        if (flags.node)
            removeNodes(*store, list);
        else
            store->removePaths(paths);
        host::Interruption::ignore();
    }
    printPaths(change);
    printNote((*flags.dryRun ? "Would remove " : "Removed ") + formatCount(list.size(), flags.node ? "node" : "path") +
              '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "A path to remove with everything below it", Positional::Kind::list}});
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "--force", flags->force, "Ignore paths that do not exist, and allow to remove the root path");
    addFlag(app, "--node", flags->node, "Remove only the node of each PATH; the path and what is below it stay");
    flags->dryRun = addDryRun(app);
    return [positionals, flags] { return remove(positionals.get(), *flags); };
}

const Command command(Group::change, "remove", "Remove paths with everything below them", configure);

}  // namespace

}  // namespace cli
