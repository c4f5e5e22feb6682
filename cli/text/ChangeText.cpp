#include "cli/text/ChangeText.hpp"

#include <vector>

#include "cli/Options.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Terminal.hpp"

namespace cli {

std::string countChanges(const StoreChange& change) {
    return formatNumber(change.added.size()) + " added, " + formatNumber(change.updated.size()) + " updated, " +
           formatNumber(change.removed.size()) + " removed";
}

Json toJson(const StoreChange& change) {
    return {{"added", change.added.size()}, {"updated", change.updated.size()}, {"removed", change.removed.size()}};
}

void printPaths(const StoreChange& change) {
    if (!options().verbose)
        return;
    const auto printAll = [](const std::vector<pm::MetadataPath>& paths, const char* mark, Style style) {
        for (const pm::MetadataPath& path : paths)
            printNote(paint(style, mark + formatPath(path)) + '\n');
    };
    printAll(change.added, "+ ", Style::green);
    printAll(change.updated, "~ ", Style::yellow);
    printAll(change.removed, "- ", Style::red);
}

}  // namespace cli
