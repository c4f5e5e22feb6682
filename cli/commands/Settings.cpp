/// project-metadata settings: the user's settings, and what is wrong with them.

#include <algorithm>

#include "cli/Command.hpp"
#include "cli/text/Suggestion.hpp"
#include "host/FileUtils.hpp"
#include "host/SettingsService.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace cli {

namespace {

using host::Setting;

/// What is wrong with the name of `setting`; empty if nothing is.
std::string findUnknownName(const Setting& setting, const std::vector<Setting>& all) {
    if (setting.isKnown)
        return "";
    std::vector<std::string> groups, keys;
    for (const Setting& each : all) {
        if (!each.isKnown)
            continue;
        groups.push_back(each.group);
        if (each.group == setting.group)
            keys.push_back(each.key);
    }
    if (keys.empty())
        return "there is no group of settings \"" + setting.group + '"' + suggest(setting.group, groups);
    return "the group \"" + setting.group + "\" has no setting \"" + setting.key + '"' + suggest(setting.key, keys);
}

/// What is wrong with the value of `setting`, one of the library's; empty if nothing is.
std::string findWrongValue(const Setting& setting) {
    const auto refuse = [&](const std::vector<std::string>& choices) {
        std::string text =
            "\"" + host::toUtf8(setting.value) + "\" is no value of \"" + setting.key + "\"; it can be: ";
        for (const std::string& choice : choices)
            text += (&choice == &choices.front() ? "" : ", ") + choice;
        return text + suggest(host::toUtf8(setting.value), choices);
    };
    const std::u16string& value = setting.value;
    if (setting.key == "DefaultMetadataRoot") {
        std::vector<std::string> choices;
        for (const std::u16string& root : pm::getSupportedRoots())
            choices.push_back(host::toUtf8(root));
        return std::find(choices.begin(), choices.end(), host::toUtf8(value)) == choices.end() ? refuse(choices) : "";
    }
    if (setting.key == "DefaultMetadataManager" && !pm::getNamedFactory(value)) {
        std::vector<std::string> choices;
        for (const auto& factory : pm::getRegisteredFactories()) {
            if (!factory->isHidden())
                choices.push_back(host::toUtf8(factory->getName()));
        }
        return refuse(choices);
    }
    if (setting.key == "MakeReadOnlyMetadataWritable" && value != u"yes" && value != u"no")
        return refuse({"yes", "no"});
    return "";
}

std::string formatPlace(const Setting& setting) {
    if (setting.file.empty())
        return "default";
    return setting.file.accessName() + (setting.line > 0 ? ':' + std::to_string(setting.line) : "");
}

Status listSettings(bool isJson) {
    const auto root = host::SettingsService::getSettingsRoot();
    const auto* const lister = dynamic_cast<const host::SettingsLister*>(root.get());
    if (!lister)
        throw CommandError(Status::failure, "The settings of this host cannot be listed");
    const std::vector<Setting> settings = lister->listSettings();
    const host::Path file = lister->getSettingsFile();
    Json json{{"file", toJson(file)}, {"settings", Json::array()}, {"problems", Json::array()}};
    Status status = Status::done;
    std::string group;
    if (!isJson)
        printNote("The settings file is " + escapeName(file.text()) +
                  (host::FileUtils::existNoExcept(file) ? "\n" : ", which is not there\n"));
    for (const Setting& setting : settings) {
        const Json line = setting.line > 0 ? Json(setting.line) : Json(nullptr);
        if (!isJson && setting.group != group)
            print('[' + escapeText(host::fromUtf8(group = setting.group)) + "]\n");
        if (!isJson) {
            print(escapeName(host::fromUtf8(setting.key)) + " = " + escapeText(setting.value) + "  (" +
                  escapeText(host::Path::fromAccessName(formatPlace(setting)).text()) + ")\n");
        }
        json["settings"].push_back({{"group", setting.group},
                                    {"key", setting.key},
                                    {"value", toJson(setting.value)},
                                    {"file", setting.file.empty() ? Json(nullptr) : toJson(setting.file)},
                                    {"line", line}});
        std::string problem = findUnknownName(setting, settings);
        if (problem.empty())
            problem = findWrongValue(setting);
        if (problem.empty())
            continue;
        status = Status::foundProblems;
        json["problems"].push_back({{"file", toJson(setting.file)}, {"line", line}, {"problem", problem}});
        if (!isJson) {
            flushOutput();
            reportError(formatPlace(setting) + ": " + problem);
        }
    }
    if (isJson)
        printJson(json);
    return status;
}

Command::Action configure(CLI::App& app) {
    return [isJson = addJson(app)] { return listSettings(*isJson); };
}

const Command command(Group::look, "settings", "List the settings in effect, and check the settings file", configure);

}  // namespace

}  // namespace cli
