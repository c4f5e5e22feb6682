/// What a command of project-metadata consists of. Each command lies in a file of its own in commands/, where one
/// static `Command` makes it known; nothing else changes when a file is added. It includes this, and so what most of
/// them read arguments and print with.
///
/// Commands are made before `main` starts and never change; everything here belongs to the main thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Names.hpp"
#include "cli/Positionals.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/SafeText.hpp"

namespace cli {

/// Where the overview of all commands shows a command; hidden ones are for the build, not for users.
enum class Group { look, change, transfer, compare, trust, report, hidden };

class Command {
public:
    /// Does what the command line asked for. Errors are exceptions.
    using Action = std::function<Status()>;

    /// Declares the command's arguments to `app` and returns the action that uses them once they are parsed.
    using Configure = Action (*)(CLI::App& app);

    /// Makes the command known. All texts are literals.
    Command(Group group, const char* name, const char* summary, Configure configure);

    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    /// The heading of the command's group in the overview; empty for hidden commands.
    const char* groupTitle() const;

    const char* name() const { return name_; }
    const char* summary() const { return summary_; }
    Action makeAction(CLI::App& app) const { return configure_(app); }

    /// All commands, by group and name.
    static std::vector<const Command*> all();

private:
    Group group_;
    const char* name_;
    const char* summary_;
    Configure configure_;
};

}  // namespace cli
