/// project-metadata import: what export wrote, as the metadata of a project.

#include "operations/Import.hpp"
#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/Progress.hpp"
#include "operations/Project.hpp"

namespace cli {

namespace {

Status importFile(const host::Path& file, const host::Path& root, const ImportRequest& request, bool isJson) {
    const bool makesRoot = !leadsToFolder(root.accessName());
    CommandObserver observer;
    const auto [change, damaged] = importFile(file, root, request, observer);
    if (isJson) {
        Json json = toJson(change);
        json["damaged"] = toJsonOrNull(damaged);
        printJson(json);
        return Status::done;
    }
    if (damaged) {
        printNote("What was there is damaged, and " +
                  std::string(request.isDryRun ? "would be moved to " : "has been moved to ") +
                  escapeName(damaged->text()) + '\n');
    }
    if (makesRoot)
        printNote((request.isDryRun ? "Would make the folder " : "Made the folder ") + escapeName(root.text()) + '\n');
    printPaths(change);
    printNote((request.isDryRun ? "Not done: " : "") + countChanges(change) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"FILE", "A file that \"project-metadata export\" wrote; - is the standard input"}}, RootPlace::last);
    const auto request = std::make_shared<ImportRequest>();
    const auto top = std::make_shared<std::optional<std::string>>();
    addOption(app, "--path", *top, "Only this path, with everything below it; the rest of the project stays", "PATH");
    addFlag(app, "--replace", request->replace,
            "Replace all metadata that the project has, or that PATH has; what is damaged is moved aside");
    addOption(app, "--store", request->store, "The kind of store of a new project, or in place of a damaged one",
              "STORE");
    addStoreOptions(app, request->options);
    addOption(app, "--folder", request->folder, "The metadata folder of a new project, relative to ROOT", "NAME");
    return [positionals, request, top, isJson = addJson(app), dryRun = addDryRun(app)] {
        request->isDryRun = *dryRun;
        if (*top)
            request->top = parsePath(**top);
        const auto [root, texts] = positionals.get();
        const InputFile file(texts[0]);
        return importFile(file.path(), root, *request, *isJson);
    };
}

const Command command(Group::transfer, "import", "Read exported metadata into a project, which may be new", configure);

}  // namespace

}  // namespace cli
