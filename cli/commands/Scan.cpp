/// project-metadata scan: metadata for every file and folder below a folder.

#include <memory>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/CommandObserver.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "operations/Scan.hpp"

namespace cli {

namespace {

struct Flags {
    std::shared_ptr<const bool> json;
    std::shared_ptr<const bool> dryRun;
};

Status scan(const host::Path& root, const host::Path& folder, const Flags& flags) {
    CommandObserver observer;
    const operations::ScanResult result = operations::scanInto(root, folder, *flags.dryRun, observer);
    if (*flags.json) {
        Json json = toJson(result.change);
        json["files"] = result.files;
        json["folders"] = result.folders;
        printJson(json);
        return Status::done;
    }
    printPaths(result.change);
    printNote((*flags.dryRun ? "Not done: " : "") + countChanges(result.change) + "; " +
              formatCount(result.files, "file") + ", " + formatCount(result.folders, "folder") + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"FOLDER", "The folder to describe; without, ROOT", Positional::Kind::optional}});
    return [positionals, flags = Flags{addJson(app), addDryRun(app)}] {
        const auto [root, texts] = positionals.get();
        return scan(root, texts.empty() ? root : host::Path::fromAccessName(texts[0]), flags);
    };
}

const Command command(Group::change, "scan", "Describe every file and folder of a folder in a project's metadata",
                      configure);

}  // namespace

}  // namespace cli
