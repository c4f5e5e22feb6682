/// The arguments of a command that are no options. All commands that work on a project take its root folder as ROOT,
/// which may be left out: it is then the one that the option --root names, or is found from the current folder upwards.
///
/// Main thread only.
#pragma once

#include <memory>
#include <string>
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

/// How the argument `option` stands in a line on usage: in brackets if it may be left out, with dots if it is a list.
std::string formatUsage(const CLI::Option& option);

class Positionals {
public:
    /// Declares ROOT and `arguments`, in this order or with ROOT as the last, to `app`.
    explicit Positionals(CLI::App& app, std::vector<Positional> arguments = {}, RootPlace place = RootPlace::first);

    struct Values {
        host::Path root;
        std::vector<std::string> texts;  ///< of the other arguments in their order, as far as they are given
    };

    /// What was given, once the command line is parsed. If it could be read with ROOT and without, the first argument
    /// is ROOT where that names a folder.
    /// @throws CommandError for too few or too many arguments, and where no project is found
    Values get() const;

private:
    bool hasRoot(const std::vector<std::string>& given) const;

    struct Given;

    std::vector<Positional> arguments_;
    RootPlace place_;
    std::shared_ptr<Given> given_;
};

}  // namespace cli
