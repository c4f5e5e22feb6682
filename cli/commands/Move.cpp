/// project-metadata move: renames a path, or moves it with everything below it.

#include "cli/Command.hpp"
#include "cli/Editing.hpp"

namespace cli {

namespace {

Status move(const Positionals::Values& values, const EditFlags& flags) {
    const pm::MetadataPath from = parsePath(values.texts[0]);
    const pm::MetadataPath to = parsePath(values.texts[1]);
    Editing editing(values.root, flags);
    editing.edit().move(from, to);
    const StoreChange change = editing.finish();
    editing.tell(change, (editing.isDryRun() ? "Would move " : "Moved ") + formatCount(change.added.size(), "path") +
                             ", from " + formatPath(from) + " to " + formatPath(to) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The path to move, with everything below it"},
                                        {"NEW-PATH", "What it is to be; its parent must exist"}});
    return [positionals, flags = addEditFlags(app)] { return move(positionals.get(), flags); };
}

const Command command(Group::change, "move", "Rename or move a path with everything below it", configure);

}  // namespace

}  // namespace cli
