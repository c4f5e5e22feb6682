/// Differences as `diff`, `log` and `watch` print them. Main thread only.
#pragma once

#include <cstddef>

#include "cli/text/Json.hpp"
#include "operations/TreeDiff.hpp"

namespace cli {

/// Prints the path of `diff`, `level` levels deep, and below it what is different.
void printDiff(const operations::PathDiff& diff, std::size_t level = 0);

enum class DiffParts { name, all };

/// The members that docs/command.md lists; without those of the content for `DiffParts::name`.
Json toJson(const operations::PathDiff& diff, DiffParts parts = DiffParts::all);

}  // namespace cli
