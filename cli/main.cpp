/// The command project-metadata: reads the command line and lets one command do its work.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/Command.hpp"
#include "cli/HelpText.hpp"
#include "cli/Options.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/Suggestion.hpp"
#include "cli/text/Warnings.hpp"
#include "host/Interruption.hpp"
#include "project/Version.hpp"

namespace {

const char* const versionText =
    "project-metadata " PROJECT_METADATA_VERSION " (service framework: " PROJECT_METADATA_SERVICES_NAME ")";

/// Help that says of a command also which options it shares with all others.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_option_usage(const CLI::Option* option) const override { return cli::formatUsage(*option); }

    /// What stands behind an option's name: what its value is, and whether it must be given.
    std::string make_option_opts(const CLI::Option* option) const override {
        const bool isList = option->get_expected_max() >= CLI::detail::expected_max_vector_size;
        const bool hasType = !option->get_positional() && option->get_type_size() != 0;
        return (hasType ? ' ' + option->get_type_name() : "") + (isList ? "..." : "") +
               (hasType && option->get_required() ? " (required)" : "");
    }

    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override {
        const CLI::App* const parent = app->get_parent();
        if (!parent)
            return Formatter::make_subcommands(app, mode);
        return make_group("Options of all commands", false, parent->get_options([parent](const CLI::Option* option) {
            return option != parent->get_help_ptr() && option != parent->get_version_ptr();
        }));
    }
};

std::shared_ptr<CLI::Formatter> makeFormatter() {
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(22);
    formatter->label("Positionals", "Arguments");
    formatter->label("SUBCOMMAND", "COMMAND");
    return formatter;
}

/// The sentence of `error`, or a better one.
std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    std::vector<std::string> names;
    if (!app.get_subcommands().empty()) {
        const CLI::App& command = *app.get_subcommands().front();
        const std::vector<std::string> rest = app.remaining(true);
        const auto unknown = std::find_if(rest.begin(), rest.end(),
                                          [](const std::string& word) { return word.compare(0, 1, "-") == 0; });
        if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::ExtrasError))
            return error.what();
        if (unknown == rest.end()) {
            const bool hasConditions = command.get_option_no_throw("--attribute") != nullptr;
            return "There is one argument too many: \"" + rest.front() + '"' +
                   (hasConditions && rest.front().find_first_of("=<>") != std::string::npos
                        ? "; a condition is written --attribute \"" + rest.front() + '"'
                        : "");
        }
        for (const CLI::App* each : {&command, &app}) {
            for (const CLI::Option* option : each->get_options()) {
                for (const std::string& name : option->get_lnames())
                    names.push_back("--" + name);
            }
        }
        const std::string name = unknown->substr(0, unknown->find('='));
        return '"' + command.get_name() + "\" has no option \"" + name + '"' + cli::suggest(name, names);
    }
    if (app.remaining_size() == 0)
        return "A command is missing";
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(command->get_name());
    const std::string name = app.remaining().front();
    return "There is no command \"" + name + '"' + cli::suggest(name, names);
}

/// What stands below the list of commands. That of a command has the exit status only.
std::string makeFooter() {
    std::string text;
    for (const cli::HelpSection& section : cli::helpSections()) {
        text += std::string(section.title) + ":\n";
        for (const char* line : section.lines)
            text += std::string("    ") + line + '\n';
        text += '\n';
    }
    return text + cli::statusText;
}

/// Puts the number of the value that `text` names in its place. @return an error sentence; empty if it names one
std::string readColorUse(std::string& text) {
    using cli::ColorUse;
    static const std::map<std::string, ColorUse> uses{
        {"auto", ColorUse::automatic}, {"always", ColorUse::always}, {"never", ColorUse::never}};
    const auto use = uses.find(text);
    if (use == uses.end())
        return '"' + text + "\" is none of auto, always and never";
    text = std::to_string(static_cast<int>(use->second));
    return "";
}

/// Declares what may stand before or after every command.
void addOptions(CLI::App& app) {
    cli::Options& options = cli::options();
    app.add_flag("-q,--quiet", options.quiet, "Print data only, no notes on what was done");
    app.add_flag("-v,--verbose", options.verbose, "Print details too");
    app.add_option("--color", options.color, "When to colour the output; auto: on terminals")
        ->type_name("auto|always|never")
        ->transform(CLI::Validator(readColorUse, ""));
    app.add_option("-C,--root", options.root, "The project's root folder, in place of ROOT")->type_name("ROOT");
}

host::Interruption interruption;

/// The second Ctrl-C ends the process: what it is at cannot be stopped where everything is as it was.
void requestInterruption(int signal) {
    if (signal == SIGINT && interruption.isRequested())
        std::signal(SIGINT, SIG_DFL), raise(SIGINT);
    interruption.request();
}

/// Lets the signals that ask a program to end stop what goes on where it can leave everything as it was.
void handleSignals() {
    struct sigaction action {};
    action.sa_handler = requestInterruption;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    // Writing to a closed pipe or beyond the limit for files is an error like others, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

cli::Status run(int argc, const char* const* argv) {
    CLI::App app("Manages the metadata of engineering projects", "project-metadata");
    app.formatter(makeFormatter());
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag("--version", versionText, "Print the version and the service framework in use");
    app.footer(cli::statusText);
    app.require_subcommand(1);
    addOptions(app);

    std::map<const CLI::App*, cli::Command::Action> actions;
    for (const cli::Command* command : cli::Command::all()) {
        CLI::App* const subcommand = app.add_subcommand(command->name(), command->summary());
        subcommand->group(command->groupTitle());
        subcommand->fallthrough();
        actions[subcommand] = command->makeAction(*subcommand);
    }

    app.footer(makeFooter());
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {
        std::ostringstream text;
        app.exit(request, text);
        cli::print(text.str());
        return cli::Status::done;
    } catch (const CLI::ParseError& error) {
        cli::reportError(explain(app, error) + " (see --help)");
        return cli::Status::usage;
    }
    const CLI::App* const command = app.get_subcommands().front();
    if (cli::options().root && !cli::heedsRoot(*command)) {
        cli::reportError("\"" + command->get_name() + "\" takes no project, so --root says nothing to it; see --help");
        return cli::Status::usage;
    }
    return actions.at(command)();
}

}  // namespace

int main(int argc, char** argv) {
    handleSignals();
    const host::Interruption::Scope scope(interruption);
    cli::collectWarnings();
    cli::Status status = cli::Status::done;
    try {
        status = run(argc, argv);
        cli::flushOutput();
        if (interruption.isRequested() && !cli::options().quiet)
            cli::reportError("It was too late to stop; everything is done");
    } catch (const cli::OutputClosed&) {
        // What is known by now holds, whether anybody reads it or not.
    } catch (...) {
        std::fflush(stdout);  // what was printed before the error is shown before it
        status = cli::reportCurrentException();
    }
    cli::reportWarnings();
    return static_cast<int>(status);
}
