/// project-metadata locate: where a project's metadata is and of which type.

#include <string>

#include "cli/Command.hpp"
#include "cli/Output.hpp"
#include "cli/Positionals.hpp"
#include "cli/Project.hpp"
#include "cli/SafeText.hpp"
#include "host/FileSystem.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

void printField(const std::string& label, const std::u16string& value) {
    print(label + std::string(12 - label.size(), ' ') + escapeName(value) + '\n');
}

Status locate(const host::Path& root) {
    const host::Path coreFile = requireCoreFile(root);
    const auto type = pm::ProjectMetadataLocation(root).getMetadataType();
    printField("Folder", pm::getParentFolder(coreFile).text());
    printField("Core file", coreFile.text());
    printField("Type", type.value_or(u"(none)"));
    for (const std::u16string& name : pm::getSupportedRoots()) {
        const host::Path other = root / name / coreFile.fileName();
        if (other != coreFile && host::FileSystem::exists(other))
            printField("Not used", other.text());
    }
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    return [positionals = Positionals(app)] { return locate(positionals.get().root); };
}

const Command command(Group::look, "locate", "Show where a project's metadata is, and of which type", configure);

}  // namespace

}  // namespace cli
