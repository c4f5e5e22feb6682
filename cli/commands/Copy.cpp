/// project-metadata copy: copies a path with everything below it.

#include "cli/Command.hpp"
#include "cli/Editing.hpp"

namespace cli {

namespace {

Status copy(const Positionals::Values& values, const EditFlags& flags) {
    const pm::MetadataPath from = parsePath(values.texts[0]);
    const pm::MetadataPath to = parsePath(values.texts[1]);
    Editing editing(values.root, flags);
    editing.edit().copy(from, to);
    const StoreChange change = editing.finish();
    editing.tell(change, (editing.isDryRun() ? "Would copy " : "Copied ") + formatCount(change.added.size(), "path") +
                             ", from " + formatPath(from) + " to " + formatPath(to) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The path to copy, with everything below it"},
                                        {"NEW-PATH", "What the copy is to be; its parent must exist"}});
    return [positionals, flags = addEditFlags(app)] { return copy(positionals.get(), flags); };
}

const Command command(Group::change, "copy", "Copy a path with everything below it", configure);

}  // namespace

}  // namespace cli
