/// project-metadata check: whether a project's metadata is all right.

#include <algorithm>

#include "cli/Command.hpp"
#include "cli/Options.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "cli/text/Warnings.hpp"
#include "operations/ProjectCheck.hpp"
#include "operations/ProjectRepair.hpp"

namespace cli {

namespace {

std::string describe(const Problem& problem) {
    return (problem.path ? formatPath(*problem.path) + ": " : "") + escapeText(problem.problem);
}

std::string describe(const Repair& repair) {
    return escapeText(repair.what) + (repair.target ? ' ' + escapeName(repair.target->text()) : "");
}

void printProblem(const Problem& problem) {
    const std::string line = problem.line > 0 ? std::to_string(problem.line) + ":" : "";
    print(paint(Style::bold, escapeName(problem.file.text()) + ':' + line) + ' ' + describe(problem) + '\n');
}

void printRepair(const Repair& repair, bool isDryRun) {
    print(paint(Style::green, isDryRun ? "would repair" : "repaired") + ": " + escapeName(repair.file.text()) + ' ' +
          describe(repair) + '\n');
}

using cli::toJson;

Json toJson(const Problem& problem) {
    return {{"file", toJson(problem.file)},
            {"line", problem.line > 0 ? Json(problem.line) : Json(nullptr)},
            {"problem", describe(problem)}};
}

Json toJson(const Repair& repair) {
    return {{"file", toJson(repair.file)}, {"repair", describe(repair)}};
}

template <class List>
Json listJson(const List& list) {
    Json json = Json::array();
    for (const auto& element : list)
        json.push_back(toJson(element));
    return json;
}

/// Mends what can be mended; that may bring other problems to light.
std::vector<Repair> repairAll(const host::Path& root, CheckResult& result, bool isDryRun, CommandObserver& observer) {
    constexpr int rounds = 5;
    std::vector<Repair> all;
    for (int round = 0; round < rounds; ++round) {
        const std::vector<Repair> repairs = repairProject(root, result.problems, isDryRun);
        all.insert(all.end(), repairs.begin(), repairs.end());
        if (repairs.empty() || isDryRun)
            break;
        result = checkProject(root, observer);
    }
    return all;
}

struct Wish {
    bool repair = false;
    bool dryRun = false;
    bool json = false;
};

/// What has come of a check.
struct Findings {
    const std::vector<Problem>& found;
    const std::vector<Repair>& repairs;
    const CheckResult& result;
};

void printFindings(const Findings& findings, const Wish& wish) {
    const auto& [found, repairs, result] = findings;
    if (wish.json) {
        printJson({{"files", result.files},
                   {"paths", result.paths},
                   {"problems", listJson(found)},
                   {"repairs", listJson(repairs)},
                   {"remaining", listJson(result.problems)},
                   {"others", listJson(result.others)}});
        return;
    }
    for (const Repair& repair : repairs)
        printRepair(repair, wish.dryRun);
    if (!repairs.empty() && !wish.dryRun && !result.problems.empty()) {
        print("What is left:\n");
        std::for_each(result.problems.begin(), result.problems.end(), printProblem);
    }
    for (const host::Path& other : result.others) {
        if (options().verbose)
            print(escapeName(other.text()) + ": it does not belong to the metadata\n");
    }
    printNote(formatCount(result.files, "file") + " and " + formatCount(result.paths, "path") + " read\n");
    print(formatCount(result.problems.size(), "problem") + '\n');
}

Status check(const host::Path& root, const Wish& wish) {
    CommandObserver observer;
    CheckResult result = checkProject(root, observer);
    const std::vector<Problem> found = result.problems;
    if (!wish.json)
        printIfRead([&] { std::for_each(found.begin(), found.end(), printProblem); });
    std::vector<Repair> repairs;
    if (wish.repair)
        repairs = repairAll(root, result, wish.dryRun, observer);
    takeWarnings();  // the stores have logged what is printed here
    printIfRead([&] { printFindings({found, repairs, result}, wish); });
    return result.problems.empty() ? Status::done : Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app);
    const auto wish = std::make_shared<Wish>();
    addFlag(app, "--repair", wish->repair, "Mend what can be mended without a loss, and say what was done");
    const auto dryRun = addDryRun(app);
    return [positionals, wish, dryRun, json = addJson(app)] {
        if (*dryRun && !wish->repair)
            throw CommandError(Status::usage, "--dry-run says what --repair would do, and needs it");
        return check(positionals.get().root, {wish->repair, *dryRun, *json});
    };
}

const Command command(Group::trust, "check", "Look for everything that is wrong with a project's metadata", configure);

}  // namespace

}  // namespace cli
