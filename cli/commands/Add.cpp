/// project-metadata add: adds a path or a child node.

#include "cli/Command.hpp"
#include "cli/Editing.hpp"

namespace cli {

namespace {

struct Flags {
    std::optional<std::string> before;
    std::optional<std::string> after;
    EditFlags edit;
};

Status add(const Positionals::Values& values, const Flags& flags) {
    if (flags.before && flags.after)
        throw CommandError(Status::usage, "--before excludes --after");
    const NodeAddress address = parseAddress(values.texts[0]);
    std::optional<Place> place;
    if (flags.before || flags.after) {
        place = {parseAddress(flags.before ? *flags.before : *flags.after),
                 flags.before ? Place::Side::before : Place::Side::after};
    }
    Editing editing(values.root, flags.edit);
    const NodeAddress added = editing.edit().add(address, place);
    const StoreChange change = editing.finish();
    editing.tell(change, (editing.isDryRun() ? "Would add " : "Added ") + formatAddress(added) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"PATH", "The path to add, or the address of one more child node, with what is missing above it"}});
    const auto flags = std::make_shared<Flags>();
    addOption(app, "--before", flags->before, "The sibling that is to follow", "PATH");
    addOption(app, "--after", flags->after, "The sibling that is to precede; without, the last", "PATH");
    flags->edit = addEditFlags(app);
    return [positionals, flags] { return add(positionals.get(), *flags); };
}

const Command command(Group::change, "add", "Add a path without a node, or a child node", configure);

}  // namespace

}  // namespace cli
