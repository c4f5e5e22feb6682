/// project-metadata convert: a project's metadata in another kind of store, or in another folder.

#include "operations/Convert.hpp"
#include "cli/Command.hpp"
#include "cli/text/Progress.hpp"

namespace cli {

namespace {

Status convert(const host::Path& root, const ConversionRequest& request, bool isJson) {
    CommandObserver observer;
    Conversion done;
    try {
        done = convertProject(root, request, observer);
    } catch (const PathNotConverted& error) {
        throw CommandError(Status::failure,
                           "Not converted: \"" + formatPath(error.path()) + "\" would not stay as it is");
    }
    if (isJson) {
        printJson({{"paths", done.pathCount},
                   {"before", toJson(done.before)},
                   {"after", toJson(done.after)},
                   {"folder", toJson(done.folder)},
                   {"oldFolder", request.keep ? toJson(done.oldFolder) : Json(nullptr)}});
        return Status::done;
    }
    printNote((request.isDryRun ? "Would convert " : "Converted ") + formatCount(done.pathCount, "path") + " from \"" +
              escapeName(done.before) + "\" to \"" + escapeName(done.after) + "\", in " +
              escapeName(done.folder.text()) + '\n');
    if (request.keep)
        printNote("The old folder " + std::string(request.isDryRun ? "would be" : "is") + " kept as " +
                  escapeName(done.oldFolder.text()) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app);
    const auto request = std::make_shared<ConversionRequest>();
    addOption(app, "--store", request->store, "The kind of store; \"project-metadata stores\" lists them", "STORE",
              Need::required);
    addOption(app, "--folder", request->folder, "The name of the new metadata folder, relative to ROOT", "NAME");
    addStoreOptions(app, request->options);
    addFlag(app, "--keep", request->keep, "Keep the old folder, with the name of its kind of store appended");
    const auto dryRun = addDryRun(app);
    return [positionals, request, dryRun, isJson = addJson(app)] {
        request->isDryRun = *dryRun;
        return convert(positionals.get().root, *request, *isJson);
    };
}

const Command command(Group::transfer, "convert", "Move a project's metadata into another kind of store", configure);

}  // namespace

}  // namespace cli
