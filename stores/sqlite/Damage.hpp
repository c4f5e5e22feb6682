/// What is damaged in a database that can be opened.
#pragma once

#include <vector>

#include "project/metadata/MetadataDamage.hpp"
#include "stores/sqlite/PathTable.hpp"

namespace stores::sqlite {

/// Reads everything, in a transaction of the caller. @return each damage that is found: in the file itself, rows that
/// do not belong to the tree of the root path, and what is no text or no node. May be called where `table` may be used.
/// @param file of the database
std::vector<project::metadata::MetadataDamage> findDamage(PathTable& table, const Path& file);

}  // namespace stores::sqlite
