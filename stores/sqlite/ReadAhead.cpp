#include "stores/sqlite/ReadAhead.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "store_support/ToldNodes.hpp"

namespace stores::sqlite {

namespace {

constexpr std::size_t maximumEntries = 256;
constexpr std::size_t maximumBytes = 256 * 1024;

/// Deeper paths than this are read one by one.
constexpr std::size_t maximumDepth = 32;

bool areSiblings(const std::vector<PathElement>& a, const std::vector<PathElement>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end() - 1, b.begin());
}

}  // namespace

const ReadAhead::Entry* ReadAhead::find(const MetadataPath& path) {
    const auto& steps = path.getPath();
    if (steps.size() >= runs_.size())
        return nullptr;
    Run& run = runs_[steps.size()];
    if (steps.empty())
        return run.entries.empty() ? nullptr : &run.entries.front();
    for (std::size_t i = run.last; i < run.entries.size() && i <= run.last + 1; ++i) {
        if (run.entries[i].element == steps.back() && areSiblings(run.path, steps)) {
            run.last = i;
            return &run.entries[i];
        }
    }
    return nullptr;
}

const ReadAhead::Entry* ReadAhead::read(PathTable& table, const MetadataPath& path, bool readsMuch) {
    const auto& steps = path.getPath();
    const std::size_t depth = std::min(steps.size(), maximumDepth);
    if (runs_.size() <= depth)
        runs_.resize(depth + 1);
    Run& run = runs_[depth];
    const std::size_t size = readsMuch ? maximumEntries : std::min(4 * run.size, maximumEntries);
    if (!steps.empty() && !run.entries.empty() && areSiblings(run.path, steps) &&
        readOn(table, run, run.entries.back().id, steps.back(), size)) {
        run.path = steps;
        return &run.entries.front();
    }
    run.entries.clear();
    if (readsMuch && !steps.empty()) {
        // Most begin with the first of the siblings.
        const auto parent = table.find(store_support::getAncestor(path, steps.size() - 1));
        if (!parent)
            return nullptr;
        run.parent = *parent;
        run.position = std::numeric_limits<std::int64_t>::min();
        if (readOn(table, run, std::numeric_limits<RowId>::min(), steps.back(), size)) {
            run.path = steps;
            return &run.entries.front();
        }
    }
    const auto id = table.find(path);
    if (!id)
        return nullptr;
    Row row = table.getRow(*id);
    run.path = steps;
    run.position = row.position;
    run.parent = table.findParent();
    run.last = 0;
    run.size = 1;
    run.entries.push_back(
        {steps.empty() ? PathElement({}, {}) : steps.back(), *id, std::move(row.node), row.changed, std::nullopt});
    return &run.entries.front();
}

bool ReadAhead::readOn(const PathTable& table, Run& run, RowId last, const PathElement& leaf, std::size_t size) {
    std::vector<Entry> entries = std::exchange(run.entries, {});  // for its memory
    entries.clear();
    std::size_t bytes = 0;
    std::int64_t position = run.position;
    table.visitChildrenAfter(run.parent, run.position, last, [&](FullRow row) {
        if (entries.empty() && row.element != leaf)
            return false;
        bytes += row.node ? row.node->size() : 0;
        position = row.position;
        entries.push_back({row.element, row.id, std::move(row.node), row.changed, row.hasChildren});
        return entries.size() < size && bytes < maximumBytes;
    });
    if (entries.empty())
        return false;
    run.entries = std::move(entries);
    run.position = position;
    run.size = size;
    run.last = 0;
    return true;
}

}  // namespace stores::sqlite
