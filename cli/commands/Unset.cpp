/// project-metadata unset: takes attributes from the node of a path.

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
#include "cli/text/SafeText.hpp"
#include "host/Text.hpp"
#include "operations/DryRun.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;
using operations::AttributeChanges;

/// The keys `texts` from the second on, each to go; none if `node` has not all of them, which is reported.
AttributeChanges findAttributes(const pm::MetadataNode& node, const std::vector<std::string>& texts) {
    const auto keys = node.getAttributeKeys();
    AttributeChanges changes;
    bool isComplete = true;
    for (auto text = texts.begin() + 1; text != texts.end(); ++text) {
        const std::u16string key = host::fromUtf8(*text);
        changes.emplace(key, std::nullopt);
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
            reportError("The node at \"" + texts.front() + "\" has no attribute \"" + *text + "\"; nothing is changed");
            isComplete = false;
        }
    }
    return isComplete ? changes : AttributeChanges();
}

Status unset(const Positionals::Values& values, bool dryRun) {
    const pm::MetadataPath path = parsePath(values.texts[0]);
    const auto store = operations::openProject(values.root);
    requirePath(*store, path);
    AttributeChanges changes;
    const auto find = [&] {
        operations::StoreChange change;
        const std::unique_ptr<pm::MetadataNode> stored = store->getNode(path);
        const pm::MetadataNodeSpecification noNode;
        const pm::MetadataNode& node = stored ? *stored : static_cast<const pm::MetadataNode&>(noNode);
        changes = findAttributes(node, values.texts);
        if (!changes.empty())
            change.nodes.emplace_back(path, operations::changeAttributes(node, changes));
        return change;
    };
    if (dryRun)
        operations::requireFeasible(*store, values.root, find());
    else
        operations::changeStore(*store, find);
    if (changes.empty())
        return Status::foundProblems;
    for (const auto& change : changes)
        printNote(formatPath(path) + (dryRun ? " would lose " : " has lost ") + escapeText(change.first) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"PATH", "The path of the node"}, {"KEY", "The key of an attribute", Positional::Kind::list}});
    return [positionals, dryRun = addDryRun(app)] { return unset(positionals.get(), *dryRun); };
}

const Command command(Group::change, "unset", "Take attributes from a path's node", configure);

}  // namespace

}  // namespace cli
