#include "cli/Editing.hpp"

#include "cli/text/ChangeText.hpp"
#include "cli/text/Output.hpp"
#include "host/Interruption.hpp"
#include "operations/DryRun.hpp"
#include "operations/Project.hpp"

namespace cli {

EditFlags addEditFlags(CLI::App& app) {
    EditFlags flags;
    flags.dryRun = addDryRun(app);
    flags.isJson = addJson(app);
    return flags;
}

Editing::Editing(const host::Path& root, const EditFlags& flags)
    : root_(root), flags_(flags), store_(openProject(root)) {
    edit_.emplace(*store_, observer_);
}

StoreChange Editing::finish() {
    StoreChange change = edit_->finish();
    if (isDryRun()) {
        requireFeasible(*store_, root_, change);
    } else {
        const auto progress = observer_.start("Storing");
        edit_->apply(change);
        host::Interruption::ignore();
    }
    return change;
}

StoreChange Editing::make(const std::function<void(ProjectEdit&)>& ask) {
    const auto find = [&] {
        edit_.emplace(*store_, observer_);
        ask(*edit_);
        return edit_->finish();
    };
    if (isDryRun()) {
        StoreChange change = find();
        requireFeasible(*store_, root_, change);
        return change;
    }
    StoreChange change = changeStore(*store_, find);
    host::Interruption::ignore();
    return change;
}

void Editing::tell(const StoreChange& change, const std::string& note) const {
    if (*flags_.isJson) {
        printJson(toJson(change));
        return;
    }
    printPaths(change);
    printNote(note);
}

}  // namespace cli
