/// Changes of a whole store (operations/StoreChange.hpp) as commands print them. Main thread only.
#pragma once

#include <string>

#include "cli/text/Json.hpp"
#include "operations/StoreChange.hpp"

namespace cli {

/// Such as "3 added, 1,234 updated, 0 removed".
std::string countChanges(const StoreChange& change);

/// The members "added", "updated" and "removed", each a number of paths.
Json toJson(const StoreChange& change);

/// With --verbose, a note for each path that is added (+), updated (~) or removed (-).
void printPaths(const StoreChange& change);

}  // namespace cli
