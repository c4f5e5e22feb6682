#include "cli/text/Terminal.hpp"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "cli/Options.hpp"

namespace cli {

namespace {

/// The parameter of the control function SGR (ECMA-48).
const char* codeOf(Style style) {
    switch (style) {
        case Style::bold:
            return "1";
        case Style::dim:
            return "2";
        case Style::red:
            return "31";
        case Style::green:
            return "32";
        case Style::yellow:
            return "33";
        case Style::blue:
            return "34";
        case Style::cyan:
            return "36";
    }
    return "0";
}

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
    return isColored() && !text.empty() ? std::string("\x1b[") + codeOf(style) + 'm' + text + "\x1b[0m" : text;
}

}  // namespace cli
