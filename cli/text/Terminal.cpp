#include "cli/text/Terminal.hpp"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "cli/Options.hpp"

namespace cli {

namespace {

std::string_view getVariable(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

bool isColored() {
    if (options().color != ColorUse::automatic)
        return options().color == ColorUse::always;
    static const bool canAndMay = [] {
        const std::string_view terminal = getVariable("TERM");
        return isatty(STDOUT_FILENO) == 1 && getVariable("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb";
    }();
    return canAndMay;
}

std::string paint(Style style, const std::string& text) {
    return isColored() && !text.empty() ? "\x1b[" + std::to_string(static_cast<int>(style)) + 'm' + text + "\x1b[0m"
                                        : text;
}

}  // namespace cli
