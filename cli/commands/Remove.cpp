/// project-metadata remove: removes paths with everything below them, or nodes.

#include <algorithm>
#include <tuple>

#include "cli/Command.hpp"
#include "cli/Editing.hpp"

namespace cli {

namespace {

struct Flags {
    bool ignoreMissing = false;
    bool all = false;
    bool nodes = false;
    EditFlags edit;
};

/// By their steps, a child node after those that its removal would not renumber.
bool isBefore(const NodeAddress& a, const NodeAddress& b) {
    const auto compareSteps = [](const NodeStep& x, const NodeStep& y) {
        return std::tie(x.name, x.position) < std::tie(y.name, y.position);
    };
    if (a.path != b.path)
        return a.path.getPath() < b.path.getPath();
    return std::lexicographical_compare(a.inside.begin(), a.inside.end(), b.inside.begin(), b.inside.end(),
                                        compareSteps);
}

bool exists(const pm::MetadataManager& store, const NodeAddress& address, bool asksForNode) {
    if (address.inside.empty() && !asksForNode)
        return store.hasPath(address.path);
    // A damaged one is not missing: to read it is an error.
    return findNode(store.getNode(address.path).get(), address) != nullptr;
}

/// What `texts` name, or nothing if the node of a path is missing, which is reported, unless that is to be ignored.
/// @throws CommandError for a path that is missing; AddressError for a child node
std::vector<NodeAddress> findAddresses(const pm::MetadataManager& store, const std::vector<std::string>& texts,
                                       const Flags& flags) {
    std::vector<NodeAddress> addresses, missing;
    for (const std::string& text : texts) {
        NodeAddress address = parseAddress(text);
        if (address == NodeAddress{} && !flags.all && !flags.nodes)
            throw CommandError(Status::usage, "Removing the root path removes all metadata; that needs --all");
        if (exists(store, address, flags.nodes))
            addresses.push_back(std::move(address));
        else if (!flags.ignoreMissing)
            missing.push_back(std::move(address));
    }
    for (const NodeAddress& address : missing) {
        requirePath(store, address.path);
        if (!address.inside.empty())
            requireNode(store.getNode(address.path).get(), address);
        reportError("There is no node at \"" + formatAddress(address) + "\", only a branch; nothing is removed");
    }
    if (!missing.empty())
        addresses.clear();
    return addresses;
}

Status remove(const Positionals::Values& values, const Flags& flags) {
    Editing editing(values.root, flags.edit);
    std::vector<NodeAddress> addresses = findAddresses(editing.store(), values.texts, flags);
    if (addresses.empty() && !flags.ignoreMissing)
        return Status::foundProblems;

    // One may be named twice, or lie below another. The last go first, so that the numbers of child nodes hold.
    std::sort(addresses.begin(), addresses.end(), isBefore);
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
    std::reverse(addresses.begin(), addresses.end());
    std::size_t nodes = 0;
    for (const NodeAddress& address : addresses) {
        // Of the root path, only the node goes.
        const bool isOfRoot = address == NodeAddress{} && editing.store().hasNode({});
        nodes += flags.nodes || !address.inside.empty() || isOfRoot ? 1U : 0U;
        if (flags.nodes && address.inside.empty())
            editing.edit().removeNode(address.path);
        else
            editing.edit().remove(address);
    }
    const StoreChange change = editing.finish();
    std::string count = formatCount(change.removed.size(), "path");
    if (nodes > 0)
        count = (change.removed.empty() ? "" : count + " and ") + formatCount(nodes, "node");
    editing.tell(change, (editing.isDryRun() ? "Would remove " : "Removed ") + count + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"PATH", "A path to remove with everything below it, or the address of a node in it",
                                    Positional::Kind::list}});
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "--all", flags->all, "Allow to remove the root path, which means everything");
    addFlag(app, "--ignore-missing", flags->ignoreMissing, "Pass over what does not exist");
    addFlag(app, "--node-only", flags->nodes, "Remove only the node of each PATH; the path and what is below it stay");
    flags->edit = addEditFlags(app);
    return [positionals, flags] { return remove(positionals.get(), *flags); };
}

const Command command(Group::change, "remove", "Remove paths with everything below them, or nodes", configure);

}  // namespace

}  // namespace cli
