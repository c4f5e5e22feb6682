/// What is damaged in a database that can be opened.
#pragma once

#include <string>
#include <vector>

#include "stores/sqlite/PathTable.hpp"

namespace stores::sqlite {

/// Reads everything, in a transaction of the caller. @return a line for each damage that is found: in the file itself,
/// rows that do not belong to the tree of the root path, and what is no text or no node. May be called where `table`
/// may be used.
std::vector<std::u16string> findDamage(PathTable& table);

}  // namespace stores::sqlite
