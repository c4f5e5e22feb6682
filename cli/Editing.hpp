/// What the commands have in common that change a project.
///
/// Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cli/Arguments.hpp"
#include "cli/Names.hpp"
#include "cli/text/Progress.hpp"
#include "operations/ProjectEdit.hpp"

namespace cli {

struct EditFlags {
    std::shared_ptr<const bool> dryRun;
    std::shared_ptr<const bool> isJson;
};

/// Declares --dry-run and --json.
EditFlags addEditFlags(CLI::App& app);

/// A project that is open to be changed.
class Editing {
public:
    /// @throws as `openProject`
    Editing(const host::Path& root, const EditFlags& flags);

    ProjectEdit& edit() { return *edit_; }

    const pm::MetadataManager& store() const { return *store_; }

    bool isDryRun() const { return *flags_.dryRun; }

    /// Makes what has been asked of `edit`, unless it is a dry run.
    /// @return what it is
    /// @throws whatever the store throws
    StoreChange finish();

    /// Has `ask` say what is to be done with nodes alone, and makes it, unless it is a dry run. If somebody else
    /// changes the same meanwhile, it begins anew.
    /// @param ask may be called several times, each time with a new object
    /// @return what it is
    /// @throws whatever the store and `ask` throw
    StoreChange make(const std::function<void(ProjectEdit&)>& ask);

    /// Prints `change`: with --json its numbers of paths, with --verbose its paths, and `note`.
    void tell(const StoreChange& change, const std::string& note) const;

private:
    host::Path root_;
    EditFlags flags_;
    CommandObserver observer_;
    std::unique_ptr<pm::MetadataManager> store_;
    std::optional<ProjectEdit> edit_;
};

}  // namespace cli
