/// project-metadata edit: many changes of a project at once, as a file or another program says.

#include <algorithm>
#include <exception>
#include <map>

#include "cli/Command.hpp"
#include "cli/Editing.hpp"
#include "cli/Streams.hpp"
#include "cli/text/AttributeText.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/Words.hpp"
#include "host/Interruption.hpp"

namespace cli {

namespace {

/// One line, taken apart.
struct Request {
    std::vector<std::string> words;              // without the name of the command
    std::map<std::string, std::string> options;  // by name; a flag has an empty value

    std::optional<std::string> find(const std::string& option) const {
        const auto found = options.find(option);
        return found == options.end() ? std::nullopt : std::optional(found->second);
    }
};

/// What a line may begin with.
struct Verb {
    const char* usage;
    std::size_t fewest;
    std::size_t most;
    std::vector<std::string> flags;
    std::vector<std::string> options;  // these have a value
    void (*apply)(ProjectEdit& edit, const Request& request);
};

void set(ProjectEdit& edit, const Request& request) {
    SetRequest wish{request.find("--create").has_value(), std::nullopt};
    if (const auto name = request.find("--name"))
        wish.nodeName = readText(*name, "The node's name in \"" + *name + '"');
    edit.set(parseAddress(request.words[0]), parseAttributes(request.words, 1), wish);
}

void unset(ProjectEdit& edit, const Request& request) {
    std::vector<std::u16string> keys;
    for (std::size_t i = 1; i < request.words.size(); ++i)
        keys.push_back(host::fromUtf8(request.words[i]));
    const NodeAddress address = parseAddress(request.words[0]);
    const std::vector<std::u16string> missing = edit.unset(address, keys);
    if (!missing.empty()) {
        throw CommandError(Status::failure, "The node at \"" + formatAddress(address) + "\" has no attribute \"" +
                                                host::toUtf8(missing.front()) + '"');
    }
}

void add(ProjectEdit& edit, const Request& request) {
    const auto before = request.find("--before");
    const auto after = request.find("--after");
    if (before && after)
        throw CommandError(Status::usage, "--before excludes --after");
    std::optional<Place> place;
    if (before || after)
        place = {parseAddress(before ? *before : *after), before ? Place::Side::before : Place::Side::after};
    edit.add(parseAddress(request.words[0]), place);
}

void remove(ProjectEdit& edit, const Request& request) {
    const NodeAddress address = parseAddress(request.words[0]);
    const bool isNodeOnly = request.find("--node-only").has_value();
    if (address == NodeAddress{} && !isNodeOnly && !request.find("--all"))
        throw CommandError(Status::usage, "Removing the root path removes all metadata; that needs --all");
    const bool isNode = isNodeOnly || !address.inside.empty();
    if (request.find("--ignore-missing") && !(isNode ? edit.hasNode(address) : edit.hasPath(address.path)))
        return;
    if (isNodeOnly && address.inside.empty())
        edit.removeNode(address.path);
    else
        edit.remove(address);
}

void move(ProjectEdit& edit, const Request& request) {
    edit.move(parsePath(request.words[0]), parsePath(request.words[1]));
}

void copy(ProjectEdit& edit, const Request& request) {
    edit.copy(parsePath(request.words[0]), parsePath(request.words[1]));
}

const std::map<std::string, Verb>& verbs() {
    constexpr std::size_t any = 1'000'000;
    static const std::map<std::string, Verb> all{
        {"set", {"set [--create] [--name NAME] PATH KEY=VALUE...", 2, any, {"--create"}, {"--name"}, set}},
        {"unset", {"unset PATH KEY...", 2, any, {}, {}, unset}},
        {"add", {"add PATH [--before PATH|--after PATH]", 1, 1, {}, {"--before", "--after"}, add}},
        {"remove",
         {"remove [--node-only] [--all] [--ignore-missing] PATH",
          1,
          1,
          {"--node-only", "--all", "--ignore-missing"},
          {},
          remove}},
        {"move", {"move PATH NEW-PATH", 2, 2, {}, {}, move}},
        {"copy", {"copy PATH NEW-PATH", 2, 2, {}, {}, copy}},
    };
    return all;
}

/// @param problem what is wrong with it
[[noreturn]] void refuseUsage(const Verb& verb, const std::string& problem) {
    throw CommandError(Status::usage, problem + "; it is: " + verb.usage);
}

Request parseRequest(const Verb& verb, const std::vector<std::string>& words) {
    const auto holds = [](const std::vector<std::string>& names, const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    Request request;
    bool takesOptions = true;
    for (auto word = words.begin() + 1; word != words.end(); ++word) {
        if (!takesOptions || word->compare(0, 2, "--") != 0) {
            request.words.push_back(*word);
            continue;
        }
        const std::string name = word->substr(0, word->find('='));
        if (*word == "--")
            takesOptions = false;
        else if (holds(verb.flags, *word))
            request.options[*word];
        else if (!holds(verb.options, name))
            refuseUsage(verb, "There is no \"" + *word + "\" with \"" + words.front() + '"');
        else if (name == *word && word + 1 == words.end())
            refuseUsage(verb, "Nothing stands behind " + name);
        else if (!request.options.emplace(name, name == *word ? *++word : word->substr(name.size() + 1)).second)
            throw CommandError(Status::usage, name + " is there twice");
    }
    if (request.words.size() < verb.fewest)
        refuseUsage(verb, "Something is missing");
    if (request.words.size() > verb.most)
        refuseUsage(verb, '"' + request.words[verb.most] + "\" is too much");
    return request;
}

/// @return whether there was a command in `line`
bool applyLine(ProjectEdit& edit, const std::string& line) {
    const std::vector<std::string> words = splitWords(line);
    if (words.empty())
        return false;
    const auto verb = verbs().find(words.front());
    if (verb == verbs().end()) {
        std::string names;
        for (const auto& [name, each] : verbs())
            names += (names.empty() ? "" : ", ") + name;
        throw CommandError(Status::usage, '"' + words.front() + "\" is none of " + names);
    }
    verb->second.apply(edit, parseRequest(verb->second, words));
    return true;
}

/// Does what `text` says to `edit`. @return how many commands are in it
std::size_t applyLines(ProjectEdit& edit, const std::string& text, char end, const std::string& name) {
    std::size_t count = 0;
    std::size_t number = 1;
    for (std::size_t begin = 0; begin < text.size(); ++number) {
        host::Interruption::throwIfRequested();
        const std::size_t next = std::min(text.find(end, begin), text.size());
        try {
            count += applyLine(edit, text.substr(begin, next - begin)) ? 1U : 0U;
        } catch (const host::InterruptedException&) {
            throw;
        } catch (...) {
            const std::string place = (end == '\0' ? "Command " : "Line ") + std::to_string(number);
            std::throw_with_nested(CommandError(
                statusOfCurrentException(), place + (name == "-" ? " of the standard input" : " of \"" + name + '"') +
                                                " cannot be done, so nothing is changed"));
        }
        begin = next + 1;
    }
    return count;
}

struct Flags {
    bool isNullSeparated = false;
    EditFlags edit;
};

Status edit(const Positionals::Values& values, const Flags& flags) {
    const std::string& name = values.texts[0];
    const std::string text = readInput(name);
    Editing editing(values.root, flags.edit);
    const std::size_t count = applyLines(editing.edit(), text, flags.isNullSeparated ? '\0' : '\n', name);
    const StoreChange change = editing.finish();
    editing.tell(change, formatCount(count, "command") + (editing.isDryRun() ? ", not done: " : " done: ") +
                             countChanges(change) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"FILE", "A file with one command a line; - is the standard input"}});
    const auto flags = std::make_shared<Flags>();
    addFlag(app, "-0,--null", flags->isNullSeparated, "The commands end with NUL, not with a line break");
    flags->edit = addEditFlags(app);
    setFooter(app,
              "Commands: set, unset, add, remove, move and copy, with what they take on the command line. A line that "
              "is empty or begins with # is none. What has blanks in it stands in single quotes, as it is, or in "
              "double quotes, with the escapes \\\\ \\\" \\t \\n \\r \\xNN \\uNNNN \\UNNNNNNNN. Each command sees what "
              "those before it have done. If one is wrong, nothing is changed.");
    return [positionals, flags] { return edit(positionals.get(), *flags); };
}

const Command command(Group::change, "edit", "Make many changes at once, as a file or another program says", configure);

}  // namespace

}  // namespace cli
