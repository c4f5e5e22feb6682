/// project-metadata add: adds a path.

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
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
    std::optional<std::string> before;
    std::optional<std::string> after;
    std::shared_ptr<const bool> dryRun;
};

/// All paths of `store`, with `path` beside the sibling that `flags` name.
std::vector<pm::MetadataPath> insertPath(const pm::MetadataManager& store, const pm::MetadataPath& path,
                                         const Flags& flags) {
    const pm::MetadataPath sibling = parsePath(flags.before ? *flags.before : *flags.after);
    if (sibling.getPath().empty() || sibling.getParent() != path.getParent()) {
        throw CommandError(Status::usage, '"' + formatPath(sibling) + "\" is no sibling of \"" + formatPath(path) +
                                              "\": it lies below another path");
    }
    requirePath(store, sibling);
    Progress progress("Reading");
    std::vector<pm::MetadataPath> paths = operations::listPaths(store, {}, progress);
    const auto place = std::find(paths.begin(), paths.end(), sibling);
    paths.insert(flags.before ? place : place + 1, path);
    return paths;
}

Status add(const Positionals::Values& values, const Flags& flags) {
    if (flags.before && flags.after)
        throw CommandError(Status::usage, "--before excludes --after");
    const pm::MetadataPath path = parsePath(values.texts[0]);
    const auto store = operations::openProject(values.root);
    if (store->hasPath(path))
        throw CommandError(Status::failure, "There is a path \"" + formatPath(path) + "\" already");
    const bool hasPlace = flags.before || flags.after;
    const auto paths = hasPlace ? insertPath(*store, path, flags) : std::vector<pm::MetadataPath>();
    if (*flags.dryRun) {
        operations::StoreChange change;
        change.paths = {path};
        operations::requireFeasible(*store, values.root, change);
    } else {
        if (hasPlace)
            store->setPaths(paths);
        else
            store->addPath(path);
        host::Interruption::ignore();
    }
    printNote((*flags.dryRun ? "Would add " : "Added ") + formatPath(path) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The path to add, with its missing ancestors"}});
    const auto flags = std::make_shared<Flags>();
    addOption(app, "--before", flags->before, "The sibling that is to follow", "PATH");
    addOption(app, "--after", flags->after, "The sibling that is to precede; without, the last", "PATH");
    flags->dryRun = addDryRun(app);
    return [positionals, flags] { return add(positionals.get(), *flags); };
}

const Command command(Group::change, "add", "Add a path without a node", configure);

}  // namespace

}  // namespace cli
