/// project-metadata generate: the manual page and the completions for shells, for the build to install. Everything in
/// them comes from the definitions that --help prints.

#include <algorithm>
#include <cctype>
#include <map>

#include <CLI/CLI.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/replace.hpp>

#include "cli/Command.hpp"
#include "cli/HelpText.hpp"
#include "cli/Meaning.hpp"
#include "project/Version.hpp"

namespace cli {

namespace {

using boost::algorithm::join;
using boost::algorithm::replace_all_copy;

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
    Meaning meaning;

    explicit Value(const CLI::Option& option)
        : name(option.get_items_expected_max() == 0 ? "" : option.get_type_name()),
          meaning(meaningOf(name.substr(0, name.find(' ')))) {
        if (name.find('|') != std::string::npos && name.find(' ') == std::string::npos)
            choices = CLI::detail::split(name, '|');
    }
};

// The manual page, in the macros of man(7).

std::string roff(const std::string& text) {
    const std::string escaped = replace_all_copy(replace_all_copy(text, "\\", "\\e"), "-", "\\-");
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

// The completions. Each script knows commands, options and choices by itself, so that these are there whatever happens,
// and asks the command "offer" for all else.

/// Patterns of the words behind which a value stands, of what may stand before a command.
std::vector<std::string> patternsWithValue(const CLI::App& app) {
    std::vector<std::string> patterns;
    for (const CLI::Option* option : shownOptions(app)) {
        if (Value(*option).name.empty())
            continue;
        for (const std::string& name : namesOf(*option))
            patterns.push_back(name[1] == '-' ? name : "-*" + name.substr(1));
    }
    return patterns;
}

// That for bash.

/// What comes before the list of values: reading the line, asking and replying.
constexpr const char* bashHead = R"~(

# Reads the line up to the cursor as the shell will understand it: the words before the last one into `line`, that one
# into `word`. `quote` is the quote that is open in it, and `head` so much of it as readline leaves where it is.
_project_metadata_read() {
    local text=${COMP_LINE:0:COMP_POINT} mark isWord= broken= quoted= i
    line=() word= quote=
    for ((i = 0; i < ${#text}; ++i)); do
        mark=${text:i:1}
        if [[ -z $quote && $mark == [[:space:]] ]]; then
            [[ -z $isWord ]] || line+=("$word")
            word= isWord= broken=
            continue
        fi
        isWord=1
        if [[ $mark == "$quote" ]]; then
            quote=
        elif [[ -z $quote && $mark == [\'\"] ]]; then
            quote=$mark quoted=$word
        elif [[ $mark == \\ && (-z $quote || $quote == \" && ${text:i+1:1} == [\\\"\$\`]) ]]; then
            ((++i))
            word+=${text:i:1}
        else
            word+=$mark
            [[ -n $quote || $COMP_WORDBREAKS != *"$mark"* ]] || broken=$word
        fi
    done
    head=$broken
    [[ -z $quote ]] || head=$quoted
}

# Offers the arguments, quoted as the word is.
_project_metadata_reply() {
    local mark
    COMPREPLY=("${@#"$head"}")
    case $quote in
    \') mark="'\\''" && COMPREPLY=("${COMPREPLY[@]//\'/"$mark"}") ;;
    \")
        for mark in \\ \" \$ \`; do
            COMPREPLY=("${COMPREPLY[@]//"$mark"/"\\$mark"}")
        done
        # Not even a backslash keeps it from meaning the history there.
        mark="\"'!'\"" && COMPREPLY=("${COMPREPLY[@]//!/"$mark"}")
        ;;
    *)
        # The backslash first.
        for mark in \\ ' ' "'" '"' '$' '`' '!' '&' ';' '(' ')' '<' '>' '|' '*' '?' '[' ']' '{' '}' '#' '~'; do
            COMPREPLY=("${COMPREPLY[@]//"$mark"/"\\$mark"}")
        done
        ;;
    esac
    # A last mark that looks like the end of the quote keeps readline from ending it.
    [[ -z $quote ]] || COMPREPLY=("${COMPREPLY[@]/%"$quote"/"$quote$quote"}")
}

# Offers those of the words in $1 that begin as $2, which stands behind $3.
_project_metadata_choose() {
    local IFS=$' \n'
    _project_metadata_reply $(compgen -P "$3" -W "$1" -- "$2")
}

_project_metadata_offer() {
    local -a offered
    mapfile -t offered < <(command project-metadata offer project-metadata "${line[@]:1}" "$word" 2>/dev/null)
    case ${offered[0]} in
    folders) compopt +o bashdefault +o default -o dirnames ;;
    nothing) compopt +o bashdefault +o default ;;
    esac
    offered=("${offered[@]:1}")
    [[ ${#offered[@]} -ne 1 || $offered != +* ]] || compopt -o nospace
    ((${#offered[@]} == 0)) || _project_metadata_reply "${offered[@]#?}"
}

_project_metadata() {
    local -a line
    local word head quote command= previous value behind= words i
    _project_metadata_read
    COMPREPLY=()
    for ((i = 1; i < ${#line[@]}; ++i)); do
        case ${line[i]} in
        )~";

/// What is offered for the value of each option of `command`, which is "*" for all, where that is known here.
std::string bashValues(const std::string& command, const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : shownOptions(app)) {
        const Value value(*option);
        if (value.choices.empty() && value.meaning != Meaning::file && value.meaning != Meaning::folder)
            continue;
        std::vector<std::string> patterns = namesOf(*option);
        for (std::string& pattern : patterns)
            pattern.insert(0, command + ':');
        text += "    " + join(patterns, "|") + ") ";
        if (!value.choices.empty())
            text += "_project_metadata_choose \"" + join(value.choices, " ") + "\" \"$value\" \"$behind\"; return ;;\n";
        else if (value.meaning == Meaning::file)
            text += "return ;;\n";
        else
            text += "compopt +o bashdefault +o default -o dirnames; return ;;\n";
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
    std::string values = bashValues("*", app);
    std::string words;
    for (const CLI::App* command : shownCommands(app)) {
        names.push_back(command->get_name());
        values += bashValues(command->get_name(), *command);
        words += "    " + command->get_name() + ") words+=\" " + bashOptions(*command) + "\" ;;\n";
    }
    return "# bash completion for " + app.get_name() + bashHead + join(patternsWithValue(app), "|") +
           ") ((++i)) ;;\n        " + join(names, "|") + R"~() command=${line[i]} && break ;;
        esac
    done
    previous=${line[-1]} value=$word
    if [[ $word == --*=* ]]; then
        previous=${word%%=*} value=${word#*=} behind=$previous=
    fi
    case $command:$previous in
)~" + values +
           "    esac\n    words=\"" + bashOptions(app) + "\"\n    case $command in\n    '') words+=\" " +
           join(names, " ") + "\" ;;\n" + words +
           R"~(    esac
    if [[ -z $command || ($word == -* && $word != --*=*) ]]; then
        compopt +o bashdefault +o default
        _project_metadata_choose "$words" "$word"
    else
        _project_metadata_offer
    fi
}

complete -o bashdefault -o default -F _project_metadata )~" +
           app.get_name() + '\n';
}

// That for zsh, by its function _arguments.

std::string zshOptions(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : shownOptions(app)) {
        const Value value(*option);
        std::vector<std::string> names = namesOf(*option);
        const std::string excluded = join(names, " ");
        for (std::string& name : names) {
            if (!value.name.empty())
                name += name[1] == '-' ? '=' : '+';  // where the value may stand in the same word
        }
        const std::string all = names.size() == 1 ? '\'' + names[0] : "'(" + excluded + ")'{" + join(names, ",") + "}'";
        text += " \\\n            " + all + '[' +
                replace_all_copy(escapeMarks(option->get_description(), "[]\\:"), "'", "'\\''") + ']';
        if (!value.name.empty())
            text += ':' + escapeMarks(value.choices.empty() ? value.name : "value", "[]\\:") + ':' +
                    (!value.choices.empty()             ? '(' + join(value.choices, " ") + ')'
                     : value.meaning == Meaning::file   ? "_files"
                     : value.meaning == Meaning::folder ? "_files -/"
                     : value.meaning == Meaning::text   ? " "
                                                        : "_project_metadata_offer");
        text += '\'';
    }
    return text;
}

std::string makeZsh(const CLI::App& app) {
    std::string names;
    std::string cases;
    for (const CLI::App* command : shownCommands(app)) {
        names += "            '" + command->get_name() + ':' +
                 replace_all_copy(escapeMarks(command->get_description(), "\\:"), "'", "'\\''") + "'\n";
        cases += "        (" + command->get_name() + ")\n            _arguments -s" + zshOptions(*command) +
                 zshOptions(app) + " \\\n            '*:argument:_project_metadata_offer'\n            ;;\n";
    }
    return "#compdef " + app.get_name() + R"~(

_project_metadata_offer() {
    local -a offered complete open
    local word=$PREFIX
    [[ -n $compstate[quote] ]] || word=${(Q)PREFIX}
    offered=("${(@f)$(command project-metadata offer "${(@Q)before}" "${(Q)IPREFIX}$word" 2>/dev/null)}")
    case $offered[1] in
    (nothing) ;;
    (folders) _files "$@" -/ ;;
    (*) _files "$@" ;;
    esac
    complete=(${(M)offered:# *})
    complete=("${(@)complete# ${(Q)IPREFIX}}")
    open=(${(M)offered:#+*})
    open=("${(@)open#+${(Q)IPREFIX}}")
    compadd "$@" -a complete
    compadd "$@" -S '' -a open
}

_project_metadata() {
    local curcontext=$curcontext context state state_descr line
    typeset -A opt_args
    local -a before=(project-metadata "${(@)words[2,CURRENT-1]}")
    _arguments -s -C)~" +
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

// That for fish.

/// fish puts a blank behind the only candidate, so one that can be gone on with comes together with what follows it.
constexpr const char* fishHead = R"~(
function __project_metadata_ask
    command project-metadata offer $argv 2>/dev/null
end

function __project_metadata_offer
    set -l words (commandline -opc)
    set words[1] project-metadata
    set -l typed (commandline -ct)
    # What is in a quote that is open ends where the user is.
    set -l word (string unescape -- $typed; or string unescape -- $typed"'"; or string unescape -- $typed\")
    set -l offered (__project_metadata_ask $words "$word")
    switch "$offered[1]"
        case nothing
        case folders
            __fish_complete_directories $typed ''
        case '*'
            __fish_complete_path $typed
    end
    if test (count $offered) = 2; and string match -q '+*' -- $offered[2]
        set -a offered (__project_metadata_ask $words (string sub -s 2 -- $offered[2]))[2..]
    end
    string sub -s 2 -- $offered[2..]
end

complete -c project-metadata -f
complete -c project-metadata -n 'not __project_metadata_is ""' -a '(__project_metadata_offer)'
)~";

std::string fishOptions(const CLI::App& app, const std::string& condition) {
    std::string text;
    for (const CLI::Option* option : shownOptions(app)) {
        const Value value(*option);
        text += "complete -c project-metadata" + condition;
        for (const std::string& name : option->get_snames())
            text += " -s " + name;
        for (const std::string& name : option->get_lnames())
            text += " -l " + name;
        if (!value.choices.empty())
            text += " -x -a '" + join(value.choices, " ") + '\'';
        else if (value.meaning == Meaning::file)
            text += " -r -F";
        else if (value.meaning == Meaning::folder)
            text += " -x -a '(__fish_complete_directories)'";
        else if (value.meaning != Meaning::text)
            text += " -x -a '(__project_metadata_offer)'";
        else if (!value.name.empty())
            text += " -x";
        text += " -d '" + escapeMarks(option->get_description(), "'\\") + "'\n";
    }
    return text;
}

std::string makeFish(const CLI::App& app) {
    std::string text = "# fish completion for " + app.get_name() + R"~(

# Whether the line has the command $argv[1], or none if that is empty.
function __project_metadata_is
    set -l words (commandline -opc)
    set -l command ''
    for i in (seq 2 (count $words))
        string match -q -- '-*' $words[$i]; and continue
        switch $words[(math $i - 1)]
            case ')~" + join(patternsWithValue(app), "' '") +
                       R"~('
            case '*'
                set command $words[$i]
                break
        end
    end
    test "$command" = "$argv[1]"
end
)~" + fishHead + fishOptions(app, "");
    for (const CLI::App* command : shownCommands(app)) {
        text += "complete -c project-metadata -n '__project_metadata_is \"\"' -f -a " + command->get_name() + " -d '" +
                escapeMarks(command->get_description(), "'\\") + "'\n" +
                fishOptions(*command, " -n '__project_metadata_is " + command->get_name() + "'");
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
