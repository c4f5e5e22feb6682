/// project-metadata locate: where a project's metadata is and of which type.

#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/SafeText.hpp"
#include "host/FileSystem.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace cli {

namespace {

struct Place {
    host::Path folder;
    host::Path coreFile;
    std::optional<std::u16string> type;
    std::vector<host::Path> notUsed;  // core files that another one goes before
};

Place locate(const host::Path& root) {
    Place place;
    place.coreFile = operations::requireCoreFile(root);
    place.folder = pm::getParentFolder(place.coreFile);
    place.type = operations::findType(place.coreFile);
    for (const std::u16string& name : pm::getSupportedRoots()) {
        const host::Path other = root / name / place.coreFile.fileName();
        if (other != place.coreFile && host::FileSystem::exists(other))
            place.notUsed.push_back(other);
    }
    return place;
}

void printText(const Place& place) {
    printField("Folder", escapeName(place.folder.text()));
    printField("Core file", escapeName(place.coreFile.text()));
    printField("Type", escapeName(place.type.value_or(u"(none)")));
    for (const host::Path& other : place.notUsed)
        printField("Not used", escapeName(other.text()));
}

Json describe(const Place& place) {
    Json json{
        {"folder", toJson(place.folder)}, {"coreFile", toJson(place.coreFile)}, {"type", toJsonOrNull(place.type)}};
    json["notUsed"] = Json::array();
    for (const host::Path& other : place.notUsed)
        json["notUsed"].push_back(toJson(other));
    return json;
}

Command::Action configure(CLI::App& app) {
    return [positionals = Positionals(app), json = addJson(app)] {
        const Place place = locate(positionals.get().root);
        if (*json)
            printJson(describe(place));
        else
            printText(place);
        return Status::done;
    };
}

const Command command(Group::look, "locate", "Show where a project's metadata is, and of which type", configure);

}  // namespace

}  // namespace cli
