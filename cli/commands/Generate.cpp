/// project-metadata generate: the manual page and the completions for shells, for the build to install. Everything in
/// them comes from the definitions that --help prints.

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/Command.hpp"
#include "cli/HelpText.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Output.hpp"
#include "project/Version.hpp"

namespace cli {

namespace {

std::string replaceAll(std::string text, std::string_view what, std::string_view replacement) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += replacement.size())
        text.replace(at, what.size(), replacement);
    return text;
}

/// `text` with a backslash before each of `marks`.
std::string escapeMarks(const std::string& text, std::string_view marks) {
    std::string escaped;
    for (const char mark : text) {
        if (marks.find(mark) != std::string_view::npos)
            escaped += '\\';
        escaped += mark;
    }
    return escaped;
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (const std::string& part : parts)
        text.append(text.empty() ? "" : separator).append(part);
    return text;
}

std::vector<const CLI::App*> shownCommands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> shownOptions(const CLI::App& app) {
    return app.get_options(
        [](const CLI::Option* option) { return option->nonpositional() && !option->get_group().empty(); });
}

/// "-o" and "--output".
std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back('-' + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

/// What an option takes; nothing for a flag.
struct Value {
    std::string name;
    std::vector<std::string> choices;  // if its name, such as "always|never", lists them
    bool isFile = false;

    explicit Value(const CLI::Option& option)
        : name(option.get_items_expected_max() == 0 ? "" : option.get_type_name()),
          isFile(name == "FILE" || name == "FOLDER" || name == "ROOT") {
        if (name.find('|') != std::string::npos)
            choices = CLI::detail::split(name, '|');
    }
};

// The manual page, in the macros of man(7).

std::string roff(const std::string& text) {
    const std::string escaped = replaceAll(replaceAll(text, "\\", "\\e"), "-", "\\-");
    return !escaped.empty() && (escaped.front() == '.' || escaped.front() == '\'') ? "\\&" + escaped : escaped;
}

/// @param names empty for an argument that is no option
std::string manualEntry(const std::string& names, const std::string& value, const std::string& description) {
    std::string term = names.empty() ? "" : "\\fB" + roff(names) + "\\fR";
    if (!value.empty())
        term.append(term.empty() ? "" : " ").append("\\fI" + roff(value) + "\\fR");
    return ".TP\n" + term + '\n' + roff(description) + '\n';
}

std::string manualOptions(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : app.get_options([](const CLI::Option* each) { return each->get_positional(); }))
        text += manualEntry("", option->get_name(true), option->get_description());
    for (const CLI::Option* option : shownOptions(app)) {
        if (!app.get_parent() || option != app.get_help_ptr())
            text += manualEntry(join(namesOf(*option), ", "), Value(*option).name, option->get_description());
    }
    return text;
}

std::string manualCommand(const CLI::App& command) {
    std::string usage;
    for (const CLI::Option* option :
         command.get_options([](const CLI::Option* each) { return each->get_positional(); })) {
        usage += (usage.empty() ? "" : " ") + formatUsage(*option);
    }
    return manualEntry(command.get_name(), usage, command.get_description()) + ".RS\n" + manualOptions(command) +
           (command.get_footer() == statusText ? "" : ".PP\n" + roff(command.get_footer()) + '\n') + ".RE\n";
}

std::string makeManual(const CLI::App& app) {
    const std::string name = roff(app.get_name());
    std::string summary = app.get_description();
    summary[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(summary[0])));
    std::string text =
        ".TH PROJECT\\-METADATA 1 \"\" \"" + name + " " PROJECT_METADATA_VERSION "\" \"User Commands\"\n";
    text += ".SH NAME\n" + name + " \\- " + roff(summary) + '\n';
    text += ".SH SYNOPSIS\n\\fB" + name + "\\fR [\\fIOPTIONS\\fR] \\fICOMMAND\\fR [\\fIARGUMENTS\\fR]\n";
    text += ".SH OPTIONS OF ALL COMMANDS\n" + manualOptions(app) + ".SH COMMANDS\n";
    std::string group;
    for (const CLI::App* command : shownCommands(app)) {
        if (command->get_group() != group)
            text += ".SS " + roff(group = command->get_group()) + '\n';
        text += manualCommand(*command);
    }
    for (const HelpSection& section : helpSections()) {
        std::string title = section.title;
        std::transform(title.begin(), title.end(), title.begin(),
                       [](char letter) { return static_cast<char>(std::toupper(static_cast<unsigned char>(letter))); });
        text += ".SH " + roff(title) + '\n';
        for (const char* line : section.lines)
            text += roff(line) + "\n.PP\n";
    }
    return text + ".SH EXIT STATUS\n" + roff(statusText) + '\n';
}

// The completion for bash. Where it offers nothing of its own, bash offers files.

/// For each option that takes a value: what is offered for it, by `command`, which is "*" for all.
std::string bashValues(const std::string& command, const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : shownOptions(app)) {
        const Value value(*option);
        if (value.name.empty())
            continue;
        std::vector<std::string> patterns = namesOf(*option);
        for (std::string& pattern : patterns)
            pattern.insert(0, command + ':');
        text += "        " + join(patterns, "|") + ") ";
        if (!value.choices.empty())
            text += "COMPREPLY=($(compgen -W \"" + join(value.choices, " ") + "\" -- \"$word\")); ";
        else if (!value.isFile)
            text += "compopt +o default 2>/dev/null; ";
        text += "return ;;\n";
    }
    return text;
}

std::string bashOptions(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : shownOptions(app)) {
        for (const std::string& name : namesOf(*option))
            names.push_back(name);
    }
    return join(names, " ");
}

std::string makeBash(const CLI::App& app) {
    std::vector<std::string> names;
    std::vector<std::string> withValue;
    std::string values = bashValues("*", app);
    std::string words;
    for (const CLI::App* command : shownCommands(app)) {
        names.push_back(command->get_name());
        values += bashValues(command->get_name(), *command);
        words += "        " + command->get_name() + ") words+=\" " + bashOptions(*command) + "\" ;;\n";
    }
    for (const CLI::Option* option : shownOptions(app)) {
        if (!Value(*option).name.empty())
            withValue.push_back(join(namesOf(*option), "|"));
    }
    return "# bash completion for " + app.get_name() + R"~(

_project_metadata() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= words i
    # bash takes --option=value for three words.
    [[ $word == = ]] && word=
    [[ $previous == = ]] && previous=${COMP_WORDS[COMP_CWORD - 2]}
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        )~" +
           join(withValue, "|") + ") ((++i)) ;;\n        " + join(names, "|") +
           ") command=${COMP_WORDS[i]}; break ;;\n        esac\n    done\n"
           "    COMPREPLY=()\n    case $command:$previous in\n" +
           values + "    esac\n    words=\"" + bashOptions(app) + "\"\n    case $command in\n        '') words+=\" " +
           join(names, " ") + "\" ;;\n" + words + R"~(    esac
    [[ -n $command && $word != -* ]] || COMPREPLY=($(compgen -W "$words" -- "$word"))
}

complete -o bashdefault -o default -F _project_metadata )~" +
           app.get_name() + '\n';
}

// The completion for zsh, by its function _arguments.

std::string zshOptions(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : shownOptions(app)) {
        const Value value(*option);
        const std::vector<std::string> names = namesOf(*option);
        const std::string all =
            names.size() == 1 ? '\'' + names[0] : "'(" + join(names, " ") + ")'{" + join(names, ",") + "}'";
        text += " \\\n            " + all + '[' +
                replaceAll(escapeMarks(option->get_description(), "[]\\:"), "'", "'\\''") + ']';
        if (!value.name.empty())
            text += ':' + escapeMarks(value.choices.empty() ? value.name : "value", "[]\\:") + ':' +
                    (!value.choices.empty() ? '(' + join(value.choices, " ") + ')'
                     : value.isFile         ? "_files"
                                            : " ");
        text += '\'';
    }
    return text;
}

std::string makeZsh(const CLI::App& app) {
    std::string names;
    std::string cases;
    for (const CLI::App* command : shownCommands(app)) {
        names += "            '" + command->get_name() + ':' +
                 replaceAll(escapeMarks(command->get_description(), "\\:"), "'", "'\\''") + "'\n";
        cases += "        (" + command->get_name() + ")\n            _arguments" + zshOptions(*command) +
                 zshOptions(app) + " \\\n            '*:argument:_files'\n            ;;\n";
    }
    return "#compdef " + app.get_name() + R"~(

_project_metadata() {
    local curcontext=$curcontext context state state_descr line
    typeset -A opt_args
    _arguments -C)~" +
           zshOptions(app) + R"~( \
            '1: :->command' '*:: :->arguments'
    case $state in
    (command)
        local -a commands=(
)~" + names +
           R"~(        )
        _describe command commands
        ;;
    (arguments)
        case $words[1] in
)~" + cases +
           R"~(        esac
        ;;
    esac
}

_project_metadata "$@"
)~";
}

// The completion for fish.

std::string fishOptions(const CLI::App& app, const std::string& condition) {
    std::string text;
    for (const CLI::Option* option : shownOptions(app)) {
        const Value value(*option);
        text += "complete -c project-metadata" + condition;
        for (const std::string& name : option->get_snames())
            text += " -s " + name;
        for (const std::string& name : option->get_lnames())
            text += " -l " + name;
        if (!value.name.empty())
            text += value.isFile ? " -r" : " -x";
        if (!value.choices.empty())
            text += " -a '" + join(value.choices, " ") + '\'';
        text += " -d '" + escapeMarks(option->get_description(), "'\\") + "'\n";
    }
    return text;
}

std::string makeFish(const CLI::App& app) {
    std::string text = "# fish completion for " + app.get_name() + '\n' + fishOptions(app, "");
    for (const CLI::App* command : shownCommands(app)) {
        text += "complete -c project-metadata -n __fish_use_subcommand -f -a " + command->get_name() + " -d '" +
                escapeMarks(command->get_description(), "'\\") + "'\n" +
                fishOptions(*command, " -n '__fish_seen_subcommand_from " + command->get_name() + "'");
    }
    return text;
}

Command::Action configure(CLI::App& app) {
    using Maker = std::string (*)(const CLI::App&);
    static const std::map<std::string, Maker> makers{
        {"man", makeManual}, {"bash", makeBash}, {"zsh", makeZsh}, {"fish", makeFish}};
    const auto kind = std::make_shared<std::string>();
    app.add_option("KIND", *kind, "What to print: man, bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember(makers).description(""));
    return [&app, kind] {
        print(makers.at(*kind)(*app.get_parent()));
        return Status::done;
    };
}

const Command command(Group::hidden, "generate", "Print the manual page or the completion for a shell", configure);

}  // namespace

}  // namespace cli
