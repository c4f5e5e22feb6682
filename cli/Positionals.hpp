/// The arguments of a command that are no options. All commands that work on a project take its root folder as ROOT,
/// which may be left out: it is then the one that the option --root names, or is found from the current folder upwards.
///
/// Main thread only.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/Path.hpp"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace cli {

/// An argument besides ROOT.
struct Positional {
    enum class Kind { required, optional, list };  ///< a list has one element or more, and comes last

    const char* name;
    const char* description;
    Kind kind = Kind::required;
};

enum class RootPlace { first, last };

/// What may take the place of a project: nothing; or an exported file, which is looked at, or "-".
enum class RootKind { project, projectOrFile };

/// How the argument `option` stands in a line on usage: in brackets if it may be left out, with dots if it is a list.
std::string formatUsage(const CLI::Option& option);

/// What is known of the arguments of a command line that is still being typed.
struct Continuation {
    std::optional<std::string> root;                         ///< the project, if one of them names it
    std::vector<std::pair<std::string, std::string>> given;  ///< the names of the others so far, and what is there
    std::vector<std::string> next;                           ///< the names of what may follow, the likeliest first
};

class Positionals {
public:
    /// Declares ROOT and `arguments`, in this order or with ROOT as the last, to `app`.
    explicit Positionals(CLI::App& app, std::vector<Positional> arguments = {}, RootPlace place = RootPlace::first,
                         RootKind kind = RootKind::project);

    struct Values {
        host::Path root;
        std::vector<std::string> texts;  ///< of the other arguments in their order, as far as they are given
    };

    /// What was given, once the command line is parsed. If it could be read with ROOT and without, the first argument
    /// is ROOT where that names a folder, or a file where one may stand for a project.
    /// @throws CommandError for too few or too many arguments, and where no project is found
    Values get() const;

private:
    Continuation foresee(const std::vector<std::string>& given, bool isLast, bool isRootNamed) const;
    bool hasRoot(const std::vector<std::string>& given) const;

    /// Whether `argument` leads to something that ROOT can be.
    bool canBeRoot(const std::string& argument) const;

    /// Whether the last of the arguments may be there several times.
    bool hasList() const;

    struct Given;

    std::vector<Positional> arguments_;
    RootPlace place_;
    RootKind kind_;
    std::shared_ptr<Given> given_;
};

/// The arguments of a command that takes folders or files by name, one of which --root can name instead: those behind
/// it then come one place earlier.
class Operands {
public:
    /// @param rootPlace which argument --root stands for, counted from 0
    Operands(CLI::App& app, std::vector<Positional> arguments, std::size_t rootPlace);

    /// What was given for each argument, once the command line is parsed.
    /// @throws CommandError for too few or too many arguments
    std::vector<std::optional<std::string>> get() const;

    /// @throws CommandError if there is any, which the option `name` excludes
    void requireNone(const std::string& name) const;

private:
    Continuation foresee(const std::vector<std::string>& given, bool isLast, bool isRootNamed) const;

    std::vector<Positional> arguments_;
    std::size_t rootPlace_;
    std::shared_ptr<std::vector<std::optional<std::string>>> given_;
};

/// The root folder of the project that the current folder lies in: the nearest one upwards that has metadata.
/// @throws CommandError with `Status::notAProject` if there is none
host::Path findRoot();

/// Whether the command `app` takes a project, and so heeds --root.
bool heedsRoot(const CLI::App& app);

/// How the arguments of the command `app` go on after `given`.
/// @param isLast whether there may be no further one, because it is an option that is being typed
/// @param isRootNamed whether --root is given
Continuation foreseeArguments(const CLI::App& app, const std::vector<std::string>& given, bool isLast,
                              bool isRootNamed);

}  // namespace cli
