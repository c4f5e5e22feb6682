/// The option --dry-run, of every command that changes something. Main thread only.
#pragma once

#include <memory>

#include <CLI/CLI.hpp>

namespace cli {

/// Declares the option --dry-run to `app`. @return whether it was given, once the command line is parsed
inline std::shared_ptr<const bool> addDryRun(CLI::App& app) {
    auto dryRun = std::make_shared<bool>(false);
    app.add_flag("--dry-run", *dryRun, "Say what would be done, and do nothing");
    return dryRun;
}

}  // namespace cli
