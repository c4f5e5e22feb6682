/// project-metadata unset: takes attributes from a node.

#include <algorithm>
#include <iterator>

#include "cli/Command.hpp"
#include "cli/Editing.hpp"
#include "cli/text/AttributeText.hpp"

namespace cli {

namespace {

Status unset(const Positionals::Values& values, const EditFlags& flags) {
    const NodeAddress address = parseAddress(values.texts[0]);
    std::vector<std::u16string> keys;
    std::transform(values.texts.begin() + 1, values.texts.end(), std::back_inserter(keys),
                   [](const std::string& text) { return host::fromUtf8(text); });
    Editing editing(values.root, flags);
    std::vector<std::u16string> missing;
    const StoreChange change = editing.make([&](ProjectEdit& edit) { missing = edit.unset(address, keys); });
    for (const std::u16string& key : missing) {
        const auto stored = editing.store().getNode(address.path);
        const auto* const node = findNode(stored.get(), address);
        const std::string consequence = "; nothing is changed";
        reportError(node ? describeMissingKey(*node, address, key, consequence)
                         : "There is no node at \"" + formatAddress(address) + "\", only a branch" + consequence);
    }
    if (!missing.empty())
        return Status::foundProblems;
    std::string note;
    for (const std::u16string& key : keys)
        note += formatAddress(address) + (editing.isDryRun() ? " would lose " : " has lost ") + escapeText(key) + '\n';
    editing.tell(change, note);
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"PATH", "The path of the node, or the address of one in it"},
                                        {"KEY", "The key of an attribute", Positional::Kind::list}});
    return [positionals, flags = addEditFlags(app)] { return unset(positionals.get(), flags); };
}

const Command command(Group::change, "unset", "Take attributes from a path's node", configure);

}  // namespace

}  // namespace cli
