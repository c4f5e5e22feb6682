/// What commands declare of the command line. The library that parses it takes long to compile, so few files know it.
///
/// A value is set while the command line is parsed, and must live as long as `app`. Main thread only.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace cli {

enum class Need { optional, required };

/// @param names such as "-o,--output"
void addFlag(CLI::App& app, const char* names, bool& value, const char* description);

/// Declares an option with a value.
/// @param type what the help calls the value
void addOption(CLI::App& app, const char* names, std::string& value, const char* description, const char* type,
               Need need = Need::optional);
void addOption(CLI::App& app, const char* names, std::optional<std::string>& value, const char* description,
               const char* type);

/// As that, for an option that may be repeated.
void addOption(CLI::App& app, const char* names, std::vector<std::string>& values, const char* description,
               const char* type);

/// As that, for an option with two values; `values` is empty if it is not given.
void addPairOption(CLI::App& app, const char* names, std::vector<std::string>& values, const char* description,
                   const char* types);

/// Declares `--option` and `--service`, with which a store is told what it has to know before it makes a project.
/// @param options gets them as `setOptions` takes them
void addStoreOptions(CLI::App& app, std::vector<std::string>& options);

/// Declares an argument that is no option, of a command that does not use `Positionals`.
void addArgument(CLI::App& app, const char* name, std::string& value, const char* description,
                 Need need = Need::optional);

/// Options whose order counts, and which may be repeated.
class OrderedOptions {
public:
    /// @param app must outlive the object
    explicit OrderedOptions(CLI::App& app) : app_(app) {}

    /// @param name such as "--type"
    void addOption(const char* name, const char* description, const char* type);
    void addFlag(const char* name, const char* description);

    /// Those that were given in their order, each by its name without dashes and with its value.
    std::vector<std::pair<std::string, std::string>> get() const;

private:
    CLI::App& app_;
    std::set<const CLI::Option*> options_;
    std::list<std::vector<std::string>> values_;  // where the parser puts them, by option
    std::list<std::vector<std::string>> flags_;
};

/// What stands below the help of the command.
void setFooter(CLI::App& app, const char* text);

/// Declares the option --dry-run, of every command that changes something.
/// @return whether it was given, once the command line is parsed; so for the next one
std::shared_ptr<const bool> addDryRun(CLI::App& app);

/// Declares the option --json, of every command that prints data.
std::shared_ptr<const bool> addJson(CLI::App& app);

}  // namespace cli
