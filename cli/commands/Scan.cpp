/// project-metadata scan: metadata for every file and folder below a folder.

#include <algorithm>

#include "cli/Command.hpp"
#include "cli/Options.hpp"
#include "cli/text/ChangeText.hpp"
#include "cli/text/Glob.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "host/FileUtils.hpp"
#include "operations/Project.hpp"
#include "operations/Scan.hpp"

namespace cli {

namespace {

struct Arguments {
    std::vector<std::string> excluded;
    bool ignored = false;
    bool prune = false;
    bool times = false;
    std::shared_ptr<const bool> json;
    std::shared_ptr<const bool> dryRun;
};

/// Each excludes by name, or, with a separator in it, by place.
class Exclusion {
public:
    explicit Exclusion(const std::vector<std::string>& patterns) {
        for (const std::string& pattern : patterns) {
            // Nothing has such a place.
            if (pattern.empty() || pattern.front() == '/' || pattern.back() == '/' || pattern.rfind("./", 0) == 0) {
                throw CommandError(Status::usage,
                                   "--exclude takes a name or a place in FOLDER, such as build or src/build, "
                                   "and not \"" +
                                       pattern + '"');
            }
            (pattern.find('/') == std::string::npos ? names_ : places_).emplace_back(pattern, false);
        }
    }

    bool operator()(const std::u16string& name, const std::u16string& place) const {
        return matchesAny(names_, name) || matchesAny(places_, place);
    }

private:
    static bool matchesAny(const std::vector<Glob>& patterns, const std::u16string& text) {
        return std::any_of(patterns.begin(), patterns.end(), [&](const Glob& glob) { return glob.matches(text); });
    }

    std::vector<Glob> names_;
    std::vector<Glob> places_;
};

/// The root folder of the project that `folder` lies in; no value if it is one itself, or lies in none.
std::optional<host::Path> findProjectAbove(const host::Path& folder) {
    const host::Path start = host::FileUtils::normalize(host::FileUtils::makeAbsolute(folder));
    auto root = findProject(start);
    return root == start ? std::nullopt : root;
}

void printDetails(const ScanChange& change) {
    printPaths(change.change);
    if (!options().verbose)
        return;
    for (const auto& [from, to] : change.moved)
        printNote(paint(Style::yellow, "> " + formatPath(from) + "  to  " + formatPath(to)) + '\n');
    for (const auto& path : change.missing)
        printNote(paint(Style::red, "? " + formatPath(path)) + '\n');
}

Status printResult(const ScanResult& result, const Arguments& arguments) {
    const ScanChange& change = result.change;
    if (*arguments.json) {
        Json json = toJson(change.change);
        json["moved"] = change.moved.size();
        json["missing"] = change.missing.size();
        json["files"] = result.files;
        json["folders"] = result.folders;
        json["unreadable"] = result.problems.size();
        printJson(json);
    } else {
        printDetails(change);
        printNote((*arguments.dryRun ? "Not done: " : "") + countChanges(change.change) +
                  (change.moved.empty() ? "" : ", " + formatNumber(change.moved.size()) + " moved") +
                  (change.missing.empty() ? "" : ", " + formatNumber(change.missing.size()) + " missing") + "; " +
                  formatCount(result.files, "file") + ", " + formatCount(result.folders, "folder") + '\n');
    }
    for (const std::string& problem : result.problems)
        reportError(problem + "; what is known of it stays as it is");
    if (result.notRemembered)
        reportError("Files that are moved before the next scan will not be known again: " + *result.notRemembered);
    return result.problems.empty() ? Status::done : Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app,
                                  {{"FOLDER", "The folder to describe; without, ROOT", Positional::Kind::optional}});
    const auto arguments = std::make_shared<Arguments>();
    addOption(app, "--exclude", arguments->excluded,
              "Leave out what has a name like GLOB, or, with a / in it, a place in FOLDER", "GLOB");
    addFlag(app, "--ignored", arguments->ignored, "Describe what git ignores too");
    addFlag(app, "--prune", arguments->prune, "Remove what is missing, with what people have written there");
    addFlag(app, "--times", arguments->times, "Keep times of modification, which differ from clone to clone");
    arguments->json = addJson(app);
    arguments->dryRun = addDryRun(app);
    return [positionals, arguments] {
        const auto [given, texts] = positionals.get();
        host::Path root = given;
        ScanRequest request;
        if (!texts.empty()) {
            request.folder = host::Path::fromAccessName(texts[0]);
        } else if (const auto above = findProjectAbove(given)) {
            root = *above;
            request.folder = given;
        }
        request.wish = {arguments->times, arguments->prune};
        request.heedGit = !arguments->ignored;
        if (!arguments->excluded.empty())
            request.isExcluded = Exclusion(arguments->excluded);
        request.isDryRun = *arguments->dryRun;
        CommandObserver observer;
        return printResult(scanInto(root, request, observer), *arguments);
    };
}

const Command command(Group::change, "scan", "Describe every file and folder of a folder in a project's metadata",
                      configure);

}  // namespace

}  // namespace cli
