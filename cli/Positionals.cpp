#include "cli/Positionals.hpp"

#include <algorithm>
#include <exception>
#include <functional>
#include <iterator>
#include <map>
#include <set>

#include <CLI/CLI.hpp>

#include "cli/Options.hpp"
#include "cli/text/Errors.hpp"
#include "host/FileUtils.hpp"
#include "operations/Project.hpp"

namespace cli {

/// What the parser has put into which place; where ROOT was left out, everything is one place too far to the front.
struct Positionals::Given {
    std::vector<std::optional<std::string>> places;
    std::vector<std::string> list;
};

host::Path findRoot() {
    if (auto root = findProject(host::FileUtils::makeAbsolute({})))
        return *std::move(root);
    throw CommandError(Status::notAProject,
                       "Neither the current folder nor one above it is a project; name one, or create it with "
                       "\"project-metadata init\"");
}

namespace {

const Positional rootArgument{"ROOT", "The project's root folder; without, found from the current folder upwards",
                              Positional::Kind::optional};

const Positional rootOrFileArgument{"ROOT",
                                    "The project's root folder, an exported file, or - for one on the standard input; "
                                    "without, found from the current folder upwards",
                                    Positional::Kind::optional};

/// Those that must be given, though the parser does not know: where ROOT is left out, it puts them elsewhere.
std::set<const CLI::Option*>& neededArguments() {
    static std::set<const CLI::Option*> arguments;
    return arguments;
}

/// The commands that heed --root, and how the arguments of each go on.
using Foresee = std::function<Continuation(const std::vector<std::string>& given, bool isLast, bool isRootNamed)>;
std::map<const CLI::App*, Foresee>& projectCommands() {
    static std::map<const CLI::App*, Foresee> commands;
    return commands;
}

std::size_t countRequired(const std::vector<Positional>& arguments) {
    return static_cast<std::size_t>(std::count_if(arguments.begin(), arguments.end(), [](const Positional& argument) {
        return argument.kind != Positional::Kind::optional;
    }));
}

/// As `findRoot`, for a command line with `argument`, which could have been ROOT if it named a folder.
host::Path findRootInsteadOf(const std::string& argument) {
    try {
        return findRoot();
    } catch (const CommandError& error) {
        std::throw_with_nested(CommandError(error.status(), "No project is named: \"" + argument + "\" is no folder"));
    }
}

}  // namespace

std::string formatUsage(const CLI::Option& option) {
    const bool isList = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
    const std::string usage = option.get_name(true) + (isList ? "..." : "");
    return option.get_required() || neededArguments().count(&option) == 1 ? usage : '[' + usage + ']';
}

Positionals::Positionals(CLI::App& app, std::vector<Positional> arguments, RootPlace place, RootKind kind)
    : arguments_(std::move(arguments)), place_(place), kind_(kind), given_(std::make_shared<Given>()) {
    projectCommands()[&app] = [*this](const auto&... line) { return foresee(line...); };
    std::vector<Positional> all = arguments_;
    all.insert(place == RootPlace::first ? all.begin() : all.end(),
               kind == RootKind::project ? rootArgument : rootOrFileArgument);
    given_->places.resize(all.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        const CLI::Option* const option = all[i].kind == Positional::Kind::list
                                              ? app.add_option(all[i].name, given_->list, all[i].description)
                                              : app.add_option(all[i].name, given_->places[i], all[i].description);
        if (all[i].kind != Positional::Kind::optional)
            neededArguments().insert(option);
    }
}

bool Positionals::hasList() const {
    return !arguments_.empty() && arguments_.back().kind == Positional::Kind::list;
}

bool Positionals::canBeRoot(const std::string& argument) const {
    // "/" is how the root path is written.
    const bool isFile = kind_ == RootKind::projectOrFile && (argument == "-" || operations::isFile(argument));
    return argument != "/" && (isFile || leadsToFolder(argument));
}

bool Positionals::hasRoot(const std::vector<std::string>& given) const {
    if (options().root || given.empty())
        return false;
    if (!hasList() && given.size() > arguments_.size())
        return true;
    const bool isEnough = given.size() > countRequired(arguments_);
    return isEnough && canBeRoot(place_ == RootPlace::first ? given.front() : given.back());
}

Continuation Positionals::foresee(const std::vector<std::string>& given, bool isLast, bool isRootNamed) const {
    Continuation continuation;
    std::size_t first = 0;
    // How many arguments there are going to be is not known: what leads to a folder counts as ROOT.
    if (!isRootNamed && place_ == RootPlace::first && !given.empty() &&
        (canBeRoot(given.front()) || (!hasList() && given.size() + (isLast ? 0 : 1) > arguments_.size())))
        continuation.root = given[first++];
    for (std::size_t i = first; i <= given.size(); ++i) {
        const std::size_t place = hasList() ? std::min(i - first, arguments_.size() - 1) : i - first;
        if (place >= arguments_.size())
            break;
        if (i < given.size())
            continuation.given.emplace_back(arguments_[place].name, given[i]);
        else
            continuation.next.emplace_back(arguments_[place].name);
    }
    if (!isRootNamed && !continuation.root && given.size() == (place_ == RootPlace::first ? 0 : arguments_.size()))
        continuation.next.emplace_back(kind_ == RootKind::project ? "ROOT" : "FILE");
    return continuation;
}

Positionals::Values Positionals::get() const {
    std::vector<std::string> given;
    for (const auto& place : given_->places) {
        if (place)
            given.push_back(*place);
    }
    given.insert(given.end(), given_->list.begin(), given_->list.end());

    std::optional<std::string> named = options().root;
    if (hasRoot(given)) {
        const auto place = place_ == RootPlace::first ? given.begin() : std::prev(given.end());
        named = *place;
        given.erase(place);
    }
    if (given.size() < countRequired(arguments_)) {
        throw CommandError(Status::usage,
                           std::string(arguments_[given.size()].name) + " is missing; see --help of the command");
    }
    if (!hasList() && given.size() > arguments_.size())
        throw CommandError(Status::usage, "There is one argument too many: \"" + given.back() + '"');

    Values values;
    if (named)
        values.root = host::Path::fromAccessName(*named);
    else if (given.size() > countRequired(arguments_))
        values.root = findRootInsteadOf(place_ == RootPlace::first ? given.front() : given.back());
    else
        values.root = findRoot();
    values.texts = std::move(given);
    return values;
}

Operands::Operands(CLI::App& app, std::vector<Positional> arguments, std::size_t rootPlace)
    : arguments_(std::move(arguments)),
      rootPlace_(rootPlace),
      given_(std::make_shared<std::vector<std::optional<std::string>>>(arguments_.size())) {
    projectCommands()[&app] = [*this](const auto&... line) { return foresee(line...); };
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        const CLI::Option* const option = app.add_option(arguments_[i].name, (*given_)[i], arguments_[i].description);
        if (arguments_[i].kind != Positional::Kind::optional)
            neededArguments().insert(option);
    }
}

std::vector<std::optional<std::string>> Operands::get() const {
    std::vector<std::optional<std::string>> values = *given_;
    if (options().root) {
        values.insert(values.begin() + static_cast<std::ptrdiff_t>(rootPlace_), options().root);
        if (values.back())
            throw CommandError(Status::usage, "There is one argument too many, since --root names " +
                                                  std::string(arguments_[rootPlace_].name) + ": \"" + *values.back() +
                                                  '"');
        values.pop_back();
    }
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        if (!values[i] && arguments_[i].kind == Positional::Kind::required)
            throw CommandError(Status::usage,
                               std::string(arguments_[i].name) + " is missing; see --help of the command");
    }
    return values;
}

void Operands::requireNone(const std::string& name) const {
    if (const std::optional<std::string>& first = given_->front())
        throw CommandError(Status::usage, name + " goes without other arguments, and \"" + *first + "\" is one");
}

Continuation Operands::foresee(const std::vector<std::string>& given, bool /*isLast*/, bool isRootNamed) const {
    Continuation continuation;
    for (std::size_t i = 0, place = 0; i <= given.size(); ++i, ++place) {
        if (isRootNamed && place == rootPlace_)
            ++place;
        if (place >= arguments_.size())
            break;
        if (i == given.size())
            continuation.next.emplace_back(arguments_[place].name);
        else if (place == rootPlace_)
            continuation.root = given[i];
        else
            continuation.given.emplace_back(arguments_[place].name, given[i]);
    }
    return continuation;
}

bool heedsRoot(const CLI::App& app) {
    return projectCommands().count(&app) == 1;
}

Continuation foreseeArguments(const CLI::App& app, const std::vector<std::string>& given, bool isLast,
                              bool isRootNamed) {
    const auto foresee = projectCommands().find(&app);
    if (foresee != projectCommands().end())
        return foresee->second(given, isLast, isRootNamed);
    Continuation continuation;
    const auto arguments = app.get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (given.size() < arguments.size())
        continuation.next.push_back(arguments[given.size()]->get_name(true));
    return continuation;
}

}  // namespace cli
