/// What is damaged in the rows of a project.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <string>
#include <vector>

#include "stores/postgresql/ProjectTable.hpp"

namespace stores::postgresql {

/// What is wrong with a row that is not sound, and with one whose node cannot be read.
std::u16string describeMisfit(const Row& row);
std::u16string describeBadNode(const Row& row);

/// @param rows all rows of a project, with their steps and nodes
/// @return each damage, without a file: rows that do not say which path they are, those that have no way to the root
///         path, and nodes that are none
std::vector<MetadataDamage> findDamage(const std::vector<Row>& rows);

}  // namespace stores::postgresql
