#include "cli/Command.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace cli {

namespace {

/// In a function, so that it is there before the first static `Command`, in whatever order the files are linked.
std::vector<const Command*>& registry() {
    static std::vector<const Command*> commands;
    return commands;
}

}  // namespace

Command::Command(Group group, const char* name, const char* summary, Configure configure)
    : group_(group), name_(name), summary_(summary), configure_(configure) {
    registry().push_back(this);
}

const char* Command::groupTitle() const {
    constexpr std::array titles{"Look", "Change", "Transfer", "Compare", "Trust", "Report", ""};
    return titles.at(static_cast<std::size_t>(group_));
}

std::vector<const Command*> Command::all() {
    std::vector<const Command*> commands = registry();
    std::sort(commands.begin(), commands.end(), [](const Command* a, const Command* b) {
        return std::pair(a->group_, std::string_view(a->name_)) < std::pair(b->group_, std::string_view(b->name_));
    });
    return commands;
}

}  // namespace cli
