/// project-metadata set: gives a node attributes.

#include "cli/Command.hpp"
#include "cli/Editing.hpp"
#include "cli/text/AttributeText.hpp"

namespace cli {

namespace {

struct Flags {
    bool create = false;
    std::optional<std::string> nodeName;
    EditFlags edit;
};

Status set(const Positionals::Values& values, const Flags& flags) {
    const NodeAddress address = parseAddress(values.texts[0]);
    const AttributeChanges changes = parseAttributes(values.texts, 1);
    SetRequest request{flags.create, std::nullopt};
    if (flags.nodeName)
        request.nodeName = readText(*flags.nodeName, "The node's name in \"" + *flags.nodeName + '"');
    Editing editing(values.root, flags.edit);
    const StoreChange change = editing.make([&](ProjectEdit& edit) { edit.set(address, changes, request); });
    std::string note;
    for (const auto& [key, value] : changes) {
        note += formatAddress(address) + (editing.isDryRun() ? " would get " : " has ") +
                describeAttribute(key, *value) + '\n';
    }
    editing.tell(change, note);
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"PATH", "The path of the node, or the address of one in it"},
              {"KEY=VALUE", "An attribute and its value, or KEY@FILE for a value that is a file's content",
               Positional::Kind::list}});
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "--create", flags->create, "Add the path or child node if it does not exist, with what is above it");
    addOption(app, "--name", flags->nodeName, "The name of a path's node that is made; without, Info", "NAME");
    flags->edit = addEditFlags(app);
    return [positionals, flags] { return set(positionals.get(), *flags); };
}

const Command command(Group::change, "set", "Set attributes of a path's node, which is made if it is missing",
                      configure);

}  // namespace

}  // namespace cli
