/// project-metadata stat: how much metadata a project has, and where it is.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <system_error>

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Terminal.hpp"
#include "operations/Project.hpp"
#include "operations/TreeStore.hpp"
#include "operations/TreeWalk.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace cli {

namespace {

struct Count {
    std::size_t paths = 0;
    std::size_t nodes = 0;
    std::uint64_t text = 0;  // in bytes, see `measureText`
};

using SizedPath = std::pair<std::uint64_t, pm::MetadataPath>;

struct Statistics {
    Count all;
    std::size_t branches = 0;
    std::map<std::u16string, Count> types;
    std::size_t depth = 0;
    std::vector<SizedPath> largest;  // in descending order
    std::size_t unreadable = 0;
    std::uint64_t files = 0;
    std::uint64_t size = 0;  // of all files, in bytes
};

/// The bytes of all names, keys and values of `node` and what it holds, in UTF-8.
std::uint64_t measureText(const pm::MetadataNode& node) {
    std::uint64_t size = host::toUtf8(node.getName()).size();
    for (const std::u16string& key : node.getAttributeKeys())
        size += host::toUtf8(key).size() + host::toUtf8(node.get(key)).size();
    for (const auto& child : node.getChildNodes())
        size += measureText(*child);
    return size;
}

/// Puts `path` where it belongs among the largest. Of equal ones the first stays.
void noteSize(std::vector<SizedPath>& largest, std::uint64_t size, const pm::MetadataPath& path) {
    constexpr std::size_t shown = 5;
    if (largest.size() == shown && size <= largest.back().first)
        return;
    const auto place = std::find_if(largest.begin(), largest.end(), [size](const auto& a) { return a.first < size; });
    largest.insert(place, {size, path});
    largest.resize(std::min(largest.size(), shown));
}

/// The root path counts only if it has a node, and belongs to no type.
void countPaths(TreeWalk& walk, Progress& progress, Statistics& statistics) {
    while (walk.next()) {
        progress.advance();
        const auto node = walk.readNode();
        const bool isRoot = walk.path().getPath().empty();
        if (isRoot && !node)
            continue;
        const Count one{1, node ? 1U : 0U, node ? measureText(*node) : 0};
        const auto add = [&one](Count& count) {
            count = {count.paths + one.paths, count.nodes + one.nodes, count.text + one.text};
        };
        add(statistics.all);
        statistics.branches += node || walk.isUnreadable() ? 0U : 1U;
        if (!isRoot)
            add(statistics.types[walk.path().getPath().back().getType()]);
        if (node)
            noteSize(statistics.largest, one.text, walk.path());
        statistics.depth = std::max(statistics.depth, walk.depth());
    }
    statistics.unreadable = walk.unreadableCount();
}

void countFile(const std::filesystem::path& file, Statistics& statistics) {
    std::error_code vanished;
    const std::uintmax_t size = std::filesystem::file_size(file, vanished);
    statistics.files += vanished ? 0U : 1U;
    statistics.size += vanished ? 0U : size;
}

/// What cannot be looked at, or vanishes meanwhile, is left out.
void countFiles(const host::Path& folder, Progress& progress, Statistics& statistics) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::recursive_directory_iterator file(folder.accessName(), fs::directory_options::skip_permission_denied, error);
    for (; !error && file != fs::end(file); file.increment(error)) {
        progress.advance();
        std::error_code vanished;
        if (file->is_regular_file(vanished))
            countFile(file->path(), statistics);
    }
}

std::string alignRight(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::vector<std::pair<std::u16string, Count>> sortByPaths(const Statistics& statistics) {
    std::vector<std::pair<std::u16string, Count>> types(statistics.types.begin(), statistics.types.end());
    std::stable_sort(types.begin(), types.end(),
                     [](const auto& a, const auto& b) { return a.second.paths > b.second.paths; });
    return types;
}

void printText(const Statistics& statistics) {
    const Count& all = statistics.all;
    printField("Paths", formatNumber(all.paths));
    printField("Nodes", formatNumber(all.nodes) + ", " + formatSize(all.text) + " of text");
    printField("Branches", formatNumber(statistics.branches));
    if (statistics.unreadable > 0)
        printField("Unreadable", formatNumber(statistics.unreadable));
    printField("Depth", formatNumber(statistics.depth));
    printField("On disk", formatSize(statistics.size) + " in " + formatCount(statistics.files, "file"));
    const auto row = [](const std::string& paths, const std::string& nodes, const std::string& text) {
        return alignRight(paths, 9) + alignRight(nodes, 10) + alignRight(text, 11) + "  ";
    };
    if (!statistics.types.empty())
        print('\n' + paint(Style::bold, row("Paths", "Nodes", "Text") + "Type") + '\n');
    for (const auto& [type, count] : sortByPaths(statistics)) {
        print(row(formatNumber(count.paths), formatNumber(count.nodes), formatSize(count.text)) + escapeName(type) +
              '\n');
    }
    if (!statistics.largest.empty())
        print('\n' + paint(Style::bold, alignRight("Text", 9) + "  Largest nodes") + '\n');
    for (const auto& [size, path] : statistics.largest)
        print(alignRight(formatSize(size), 9) + "  " + formatPath(path) + '\n');
}

Json describe(const Count& count) {
    return {{"paths", count.paths}, {"nodes", count.nodes}, {"textBytes", count.text}};
}

Json describe(const Statistics& statistics) {
    Json json = describe(statistics.all);
    json["branches"] = statistics.branches;
    json["unreadable"] = statistics.unreadable;
    json["depth"] = statistics.depth;
    json["files"] = statistics.files;
    json["fileBytes"] = statistics.size;
    json["types"] = Json::array();
    for (const auto& [type, count] : sortByPaths(statistics)) {
        Json entry{{"type", toJson(type)}};
        entry.update(describe(count));
        json["types"].push_back(std::move(entry));
    }
    json["largest"] = Json::array();
    for (const auto& [size, path] : statistics.largest) {
        Json entry = toJson(path);
        entry["textBytes"] = size;
        json["largest"].push_back(std::move(entry));
    }
    return json;
}

Command::Action configure(CLI::App& app) {
    return [positionals = Positionals(app, {}, RootPlace::first, RootKind::projectOrFile), json = addJson(app)] {
        const host::Path root = positionals.get().root;
        const InputFile input(root.accessName());
        CommandObserver observer;
        const auto store = openForReading(input.path(), observer);
        TreeWalk walk(*store, {}, TreeWalk::anyDepth, reportReadError);
        Statistics statistics;
        {
            Progress progress("Reading");
            countPaths(walk, progress, statistics);
            if (isFile(input.path().accessName()))
                countFile(input.path().accessName(), statistics);
            else
                countFiles(pm::ProjectMetadataLocation(root).getDirectory(), progress, statistics);
        }
        if (*json)
            printJson(describe(statistics));
        else
            printText(statistics);
        return reportUnreadable(walk.unreadableCount());
    };
}

const Command command(Group::look, "stat", "Count a project's paths, nodes and files, and show what is largest",
                      configure);

}  // namespace

}  // namespace cli
