/// project-metadata remove: removes paths with everything below them.

#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/Command.hpp"
#include "cli/DryRun.hpp"
#include "cli/Errors.hpp"
#include "cli/Output.hpp"
#include "cli/PathText.hpp"
#include "cli/Positionals.hpp"
#include "cli/Progress.hpp"
#include "cli/Project.hpp"
#include "cli/StoreChange.hpp"
#include "host/Interruption.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

struct Flags {
    bool force = false;
    std::shared_ptr<const bool> dryRun;
};

/// The paths `texts` that exist. The others are reported.
std::vector<pm::MetadataPath> findPaths(const pm::MetadataManager& store, const std::vector<std::string>& texts,
                                        bool force) {
    std::vector<pm::MetadataPath> paths;
    for (const std::string& text : texts) {
        pm::MetadataPath path = parsePath(text);
        if (path.getPath().empty() && !force)
            throw CommandError(Status::usage, "Removing the root path removes all metadata; that needs --force");
        if (store.hasPath(path))
            paths.push_back(std::move(path));
        else if (!force)
            reportError("There is no path \"" + formatPath(path) + "\"; nothing is removed");
    }
    return paths;
}

Status remove(const Positionals::Values& values, const Flags& flags) {
    const auto store = openProject(values.root);
    const std::vector<pm::MetadataPath> paths = findPaths(*store, values.texts, flags.force);
    if (paths.size() < values.texts.size() && !flags.force)
        return Status::foundProblems;

    // A path may be named twice, and one that lies below another.
    StoreChange change;
    {
        Progress progress("Reading");
        PathSet removed;
        for (const pm::MetadataPath& path : paths) {
            for (pm::MetadataPath& each : listPaths(*store, path, progress)) {
                if (removed.insert(each).second)
                    change.removed.push_back(std::move(each));
            }
        }
    }
    if (!*flags.dryRun) {
        const Progress progress("Removing");
        store->removePaths(paths);
        host::Interruption::ignore();
    }
    printPaths(change);
    printNote((*flags.dryRun ? "Would remove " : "Removed ") + formatCount(change.removed.size(), "path") + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "A path to remove with everything below it", Positional::Kind::list}});
    const auto flags = std::make_shared<Flags>();
    app.add_flag("--force", flags->force, "Ignore paths that do not exist, and allow to remove the root path");
    flags->dryRun = addDryRun(app);
    return [positionals, flags] { return remove(positionals.get(), *flags); };
}

const Command command(Group::change, "remove", "Remove paths with everything below them", configure);

}  // namespace

}  // namespace cli
