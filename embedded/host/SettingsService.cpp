/// The settings in an INI file: one section a group, UTF-8, lines that start with ';' or '#' being comments.
///
///     [korvex.project.creation]
///     DefaultMetadataRoot = .TolvaneProject
///
/// What the file does not set has the value in `defaults`. The file is the one that the environment variable
/// PROJECT_METADATA_SETTINGS names, otherwise project-metadata/settings.ini in the user's configuration folder, which
/// is found by the XDG Base Directory rules. A privileged (setuid) process ignores its environment.
#include "host/SettingsService.hpp"

#include "embedded/host/File.hpp"
#include "host/FileSystem.hpp"
#include "host/MessageException.hpp"
#include "host/Text.hpp"

#include <fcntl.h>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <cstdlib>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

namespace host {

namespace {

/// The texts by key, by group.
using Groups = std::map<std::string, std::map<std::string, std::u16string>>;

const Groups& defaults = *new Groups{
    {"korvex.project.creation",
     {{"DefaultMetadataRoot", u"resources/project"}, {"DefaultMetadataManager", u"fixedPath"}}},
    {"korvex.project.metadata", {{"MakeReadOnlyMetadataWritable", u"no"}}},
    {"korvex.project.metadata.postgresql", {{"AllowedServers", u""}}},
};

struct HostMessage {
    static constexpr const char* catalog = "host";
};
struct SettingsFailure : HostMessage {
    static constexpr const char* key = "SettingsFailure";
    static constexpr int argumentCount = 3;
};
struct UnknownSettingsGroup : HostMessage {
    static constexpr const char* key = "UnknownSettingsGroup";
    static constexpr int argumentCount = 2;
};
struct UnknownSetting : HostMessage {
    static constexpr const char* key = "UnknownSetting";
    static constexpr int argumentCount = 3;
};

template <class Message, class... Arguments>
[[noreturn]] void fail(const Arguments&... arguments) {
    throw MessageException<Message, std::exception>(arguments...);
}

[[noreturn]] void failAtLine(const Path& file, unsigned long line, const std::string& reason) {
    fail<SettingsFailure>(file.text(), fromUtf8(std::to_string(line)), fromUtf8(reason));
}

std::optional<Path> getVariable(const char* name) {
    const char* value = secure_getenv(name);
    if (!value || !*value)
        return {};
    return Path::fromAccessName(value);
}

/// The settings file, which need not exist; none if there is no home folder either.
std::optional<Path> findSettingsFile() {
    if (auto file = getVariable("PROJECT_METADATA_SETTINGS"))
        return file;
    const Path relative = u"project-metadata/settings.ini";
    const auto folder = getVariable("XDG_CONFIG_HOME");
    if (folder && folder->text().front() == u'/')
        return *folder / relative;
    if (const auto home = getVariable("HOME"))
        return *home / u".config" / relative;
    return {};
}

/// The content of `file`, empty if there is no such file.
std::string readContent(const Path& file) {
    try {
        return File(file, O_RDONLY).readAll();
    } catch (const FileSystemException& error) {
        if (error.code() == std::errc::no_such_file_or_directory || error.code() == std::errc::not_a_directory)
            return {};
        fail<SettingsFailure>(file.text(), u"", fromUtf8(error.code().message()));
    }
}

void requireUtf8(const Path& file, const std::string& content) {
    std::istringstream lines(content);
    std::string line;
    for (unsigned long number = 1; std::getline(lines, line); ++number) {
        if (toUtf8(fromUtf8(line)) != line)
            failAtLine(file, number, "it is not UTF-8");
    }
}

boost::property_tree::ptree parse(const Path& file, const std::string& content) {
    namespace ini = boost::property_tree::ini_parser;
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const bool marked = content.compare(0, byteOrderMark.size(), byteOrderMark) == 0;
    std::istringstream stream(marked ? content.substr(byteOrderMark.size()) : content);
    stream.imbue(std::locale::classic());
    boost::property_tree::ptree sections;
    try {
        ini::read_ini(stream, sections);
    } catch (const ini::ini_parser_error& error) {
        failAtLine(file, error.line(), error.message());
    }
    return sections;
}

Groups readGroups(const Path& file) {
    const std::string content = readContent(file);
    requireUtf8(file, content);
    Groups groups = defaults;
    for (const auto& [name, section] : parse(file, content)) {
        if (section.empty())
            fail<SettingsFailure>(file.text(), u"", u'"' + fromUtf8(name) + u"\" stands above all sections");
        for (const auto& [key, value] : section)
            groups[name][key] = fromUtf8(value.data());
    }
    return groups;
}

/// The lines of a settings file, which has been read without an error, by group and key.
std::map<std::pair<std::string, std::string>, unsigned long> findLines(const std::string& content) {
    const auto trim = [](const std::string& text) {
        const std::size_t begin = text.find_first_not_of(" \t\r\xEF\xBB\xBF");
        return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
    };
    std::map<std::pair<std::string, std::string>, unsigned long> lines;
    std::istringstream stream(content);
    std::string group, line;
    for (unsigned long number = 1; std::getline(stream, line); ++number) {
        line = trim(line);
        const std::size_t end = line.find('=');
        if (line.compare(0, 1, "[") == 0)
            group = trim(line.substr(1, line.find(']') - 1));
        else if (line.compare(0, 1, ";") != 0 && line.compare(0, 1, "#") != 0 && end != std::string::npos)
            lines[{group, trim(line.substr(0, end))}] = number;
    }
    return lines;
}

/// One group as the file had it when the group was asked for.
class FileGroup final : public SettingsGroup {
public:
    FileGroup(std::string name, Path file, std::shared_ptr<const Groups> groups)
        : name_(std::move(name)), file_(std::move(file)), groups_(std::move(groups)) {}

    std::shared_ptr<const SettingsGroup> getGroup(const std::string& fullName) const override {
        const std::string prefix = name_.empty() ? "" : name_ + '.';
        const bool below = fullName.size() > prefix.size() && startsWith(fullName, prefix);
        if (!below || !isGroup(fullName))
            fail<UnknownSettingsGroup>(fromUtf8(fullName), file_.text());
        return std::make_shared<FileGroup>(fullName, file_, groups_);
    }

    std::u16string getText(const std::string& key, const std::string& /*qualifier*/) const override {
        if (const auto group = groups_->find(name_); group != groups_->end()) {
            if (const auto value = group->second.find(key); value != group->second.end())
                return value->second;
        }
        fail<UnknownSetting>(fromUtf8(name_), fromUtf8(key), file_.text());
    }

private:
    static bool startsWith(const std::string& text, const std::string& start) {
        return text.compare(0, start.size(), start) == 0;
    }

    /// Whether there is such a group or one below it.
    bool isGroup(const std::string& fullName) const {
        const auto below = groups_->lower_bound(fullName + '.');
        return groups_->count(fullName) > 0 || (below != groups_->end() && startsWith(below->first, fullName + '.'));
    }

    std::string name_;
    Path file_;
    std::shared_ptr<const Groups> groups_;
};

/// The group of all groups. It holds nothing itself, so that a process that runs for long sees every change of the
/// file and of the environment.
class FileRoot final : public SettingsGroup, public SettingsLister {
public:
    std::shared_ptr<const SettingsGroup> getGroup(const std::string& fullName) const override {
        return read()->getGroup(fullName);
    }

    std::u16string getText(const std::string& key, const std::string& qualifier) const override {
        return read()->getText(key, qualifier);
    }

    std::vector<Setting> listSettings() const override {
        const Path file = getSettingsFile();
        const Groups groups = file.empty() ? defaults : readGroups(file);
        const auto lines = findLines(file.empty() ? std::string() : readContent(file));
        std::vector<Setting> settings;
        for (const auto& [group, values] : groups) {
            const auto known = defaults.find(group);
            for (const auto& [key, value] : values) {
                const auto line = lines.find({group, key});
                const bool isSet = line != lines.end();
                settings.push_back({group, key, value, isSet ? file : Path(), isSet ? line->second : 0,
                                    known != defaults.end() && known->second.count(key) > 0});
            }
        }
        return settings;
    }

    Path getSettingsFile() const override { return findSettingsFile().value_or(Path()); }

private:
    static std::shared_ptr<const SettingsGroup> read() {
        const auto file = findSettingsFile();
        return std::make_shared<FileGroup>("", file.value_or(Path()),
                                           std::make_shared<Groups>(file ? readGroups(*file) : defaults));
    }
};

struct Root {
    std::mutex mutex;
    std::shared_ptr<const SettingsGroup> group = std::make_shared<FileRoot>();
};

Root& theRoot() {
    static Root& root = *new Root;
    return root;
}

}  // namespace

SettingsGroup::~SettingsGroup() = default;

SettingsLister::~SettingsLister() = default;

std::shared_ptr<const SettingsGroup> SettingsService::getSettingsRoot() {
    Root& root = theRoot();
    const std::lock_guard lock(root.mutex);
    return root.group;
}

void SettingsService::setSettingsRoot(std::shared_ptr<const SettingsGroup> group) {
    Root& root = theRoot();
    const std::lock_guard lock(root.mutex);
    // The group that was there is destroyed only after the lock is released.
    root.group.swap(group);
}

}  // namespace host
