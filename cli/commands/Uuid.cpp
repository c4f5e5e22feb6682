/// project-metadata uuid: the UUIDs of a project, each of which a marker file stands for.

#include <algorithm>
#include <locale>

#include <boost/algorithm/string/predicate.hpp>

#include "cli/Command.hpp"
#include "operations/DryRun.hpp"
#include "operations/FileOutput.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/Uuid.hpp"
#include "project/metadata/UuidText.hpp"

namespace cli {

namespace {

const std::u16string markerStart = u"uuid-";
const std::u16string markerEnd = u".xml";

struct Marker {
    std::string uuid;
    host::Path file;
};

/// The marker files in a metadata folder.
struct Markers {
    std::vector<Marker> good;
    std::vector<host::Path> malformed;
};

Markers findMarkers(const host::Path& folder) {
    std::vector<host::Path> files = pm::listChildFiles(folder);
    std::sort(files.begin(), files.end());
    Markers markers;
    for (const host::Path& file : files) {
        const auto marked = pm::getMarkedUuid(file);
        if (!marked)
            continue;
        const std::string uuid = host::toUtf8(*marked);
        if (pm::isUuid(uuid))
            markers.good.push_back({uuid, file});
        else
            markers.malformed.push_back(file);
    }
    return markers;
}

void printMarkers(const std::vector<Marker>& markers, bool json) {
    JsonList list;
    for (const Marker& marker : markers) {
        if (json)
            list.add({{"uuid", marker.uuid}, {"file", toJson(marker.file)}});
        else
            print(marker.uuid + "  " + escapeName(marker.file.text()) + '\n');
    }
    if (json)
        list.end();
}

Status list(const host::Path& root, bool json) {
    const Markers markers = findMarkers(pm::getParentFolder(requireCoreFile(root)));
    printMarkers(markers.good, json);
    flushOutput();
    for (const host::Path& file : markers.malformed)
        reportError("The name of the marker file " + quoted(file) + " holds no UUID; remove it, or give it one");
    if (markers.good.empty())
        reportError("The project " + quoted(root) + " has no UUID; \"project-metadata uuid --new\" gives it one");
    return markers.good.empty() || !markers.malformed.empty() ? Status::foundProblems : Status::done;
}

/// @param given the UUID in text form; without a value, a new one
Status assign(const host::Path& root, const std::optional<std::string>& given, bool dryRun, bool json) {
    if (given && !pm::isUuid(*given)) {
        throw CommandError(Status::usage, '"' + *given +
                                              "\" is no UUID, which has hexadecimal digits in groups of 8, 4, 4, 4 "
                                              "and 12, joined by \"-\"");
    }
    const host::Path folder = pm::getParentFolder(requireCoreFile(root));
    const std::u16string uuid = given ? host::fromUtf8(*given) : pm::generateUUID();
    Marker marker{host::toUtf8(uuid), folder / (markerStart + uuid + markerEnd)};
    const std::vector<Marker> present = findMarkers(folder).good;
    const auto same = std::find_if(present.begin(), present.end(), [&](const Marker& other) {
        return boost::algorithm::iequals(other.uuid, marker.uuid, std::locale::classic());
    });
    if (same != present.end())
        marker = *same;
    else if (!dryRun)
        giveToOwnerOfFolder(marker.file = pm::assignUuid(root, uuid));
    else {
        requireFeasible(root);
        if (!json)
            printNote("Would write ");
    }
    printMarkers({marker}, json);
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app, {{"UUID", "The UUID to give the project; without, its UUIDs are listed", Positional::Kind::optional}});
    const auto isNew = std::make_shared<bool>(false);
    addFlag(app, "--new", *isNew, "Give the project a new random UUID");
    return [positionals, isNew, dryRun = addDryRun(app), json = addJson(app)] {
        const auto [root, texts] = positionals.get();
        if (*isNew && !texts.empty())
            throw CommandError(Status::usage, "Either --new or a UUID can be given, not both");
        if (!*isNew && texts.empty())
            return list(root, *json);
        return assign(root, texts.empty() ? std::nullopt : std::optional(texts[0]), *dryRun, *json);
    };
}

const Command command(Group::change, "uuid", "List a project's UUIDs, or give it one", configure);

}  // namespace

}  // namespace cli
