/// What the command line says for every command. Set while it is parsed, and read afterwards; main thread only.
#pragma once

#include <optional>
#include <string>

namespace cli {

enum class ColorUse { automatic, always, never };

struct Options {
    bool quiet = false;    ///< print data only, no notes on what was done
    bool verbose = false;  ///< print details too
    ColorUse color = ColorUse::automatic;
    std::optional<std::string> root;  ///< the project's root folder, in bytes
};

inline Options& options() {
    static Options theOptions;
    return theOptions;
}

}  // namespace cli
