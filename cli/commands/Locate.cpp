/// project-metadata locate: where a project's metadata is and of which type.

#include "cli/Command.hpp"
#include "host/FileSystem.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace cli {

namespace {

Status locate(const host::Path& root, bool isJson) {
    const host::Path coreFile = requireCoreFile(root);
    const host::Path folder = pm::getParentFolder(coreFile);
    const std::optional<std::u16string> type = findType(coreFile);
    std::vector<host::Path> notUsed;  // core files that another one goes before
    for (const std::u16string& name : pm::getSupportedRoots()) {
        const host::Path other = root / name / coreFile.fileName();
        if (other != coreFile && host::FileSystem::exists(other))
            notUsed.push_back(other);
    }
    if (isJson) {
        Json json{{"folder", toJson(folder)}, {"coreFile", toJson(coreFile)}, {"type", toJsonOrNull(type)}};
        json["notUsed"] = Json::array();
        for (const host::Path& other : notUsed)
            json["notUsed"].push_back(toJson(other));
        printJson(json);
        return Status::done;
    }
    printField("Folder", escapeName(folder.text()));
    printField("Core file", escapeName(coreFile.text()));
    printField("Type", escapeName(type.value_or(u"(none)")));
    for (const host::Path& other : notUsed)
        printField("Not used", escapeName(other.text()));
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    return [positionals = Positionals(app), json = addJson(app)] { return locate(positionals.get().root, *json); };
}

const Command command(Group::look, "locate", "Show where a project's metadata is, and of which type", configure);

}  // namespace

}  // namespace cli
