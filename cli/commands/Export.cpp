/// project-metadata export: the metadata of a project, or of one of its paths, in one file.

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/Damage.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Warnings.hpp"
#include "host/Interruption.hpp"
#include "operations/Export.hpp"
#include "operations/Project.hpp"
#include "project/metadata/RepeatableRead.hpp"

namespace cli {

namespace {

struct Request {
    std::string file;
    std::optional<std::string> top;
    bool replace = false;
    std::shared_ptr<const bool> dryRun;
    std::shared_ptr<const bool> isJson;
};

void tell(const OutputFile& file, const Request& request) {
    if (file.isStandard())
        return;
    if (*request.isJson)
        printJson({{"file", toJson(file.path())}});
    else
        printNote((*request.dryRun ? "Would write " : "") + escapeName(file.path().text()) + '\n');
}

Status exportProject(const host::Path& root, const Request& request) {
    const auto top = request.top ? parsePath(*request.top) : pm::MetadataPath();
    const auto store = openProject(root);
    requirePath(*store, top);
    const OutputFile file(request.file);
    const auto existing = request.replace ? Existing::replace : Existing::keep;
    requireWritable(file.path(), existing);
    CommandObserver observer;
    const pm::RepeatableRead reading(*store);
    std::vector<pm::MetadataDamage> leftOut;
    try {
        leftOut = exportMetadata(*store, top, file.path(), existing, *request.dryRun, observer);
    } catch (const host::InterruptedException&) {
        throw;
    } catch (...) {
        std::throw_with_nested(CommandError(
            Status::failure, "The metadata of " + quoted(root) + " cannot be exported to " + quoted(file.path())));
    }
    host::Interruption::ignore();
    if (!*request.dryRun)
        file.finish();
    tell(file, request);
    flushOutput();
    std::vector<pm::MetadataDamage> damages = findDamage(*store, top);
    for (pm::MetadataDamage& lost : leftOut) {
        // What has been mended meanwhile is not in the export all the same.
        if (std::none_of(damages.begin(), damages.end(), [&](const auto& damage) { return damage.file == lost.file; }))
            damages.push_back(std::move(lost));
    }
    if (request.top && dynamic_cast<const pm::DamageReporter*>(store.get()))
        forgetDamage();  // it need not be at this path
    return reportDamage(sortDamage(damages), "The export", root);
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app);
    const auto request = std::make_shared<Request>();
    addOption(app, "-o,--output", request->file, "The file to make; - is the standard output", "FILE", Need::required);
    addOption(app, "--path", request->top, "Only this path, with everything below it", "PATH");
    addFlag(app, "--replace", request->replace, "Replace a file that exists");
    request->dryRun = addDryRun(app);
    request->isJson = addJson(app);
    return [positionals, request] { return exportProject(positionals.get().root, *request); };
}

const Command command(Group::transfer, "export", "Write a project's metadata into one new file", configure);

}  // namespace

}  // namespace cli
