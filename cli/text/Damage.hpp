/// What the metadata that a command has read lacks by damage, for commands that go on with the rest.
///
/// Main thread only.
#pragma once

#include <string>
#include <vector>

#include "cli/Names.hpp"
#include "cli/text/Errors.hpp"
#include "project/metadata/MetadataDamage.hpp"

namespace cli {

/// By what it costs. A value type.
struct SortedDamage {
    std::vector<pm::MetadataDamage> lacking;   ///< what is in these files is out of reach
    std::vector<pm::MetadataDamage> harmless;  ///< of files that hold no metadata
    std::vector<pm::MetadataDamage> foreign;   ///< of files whose metadata is read, but not what they hold besides
};

SortedDamage sortDamage(const std::vector<pm::MetadataDamage>& damages);

/// Tells what `product`, such as "The export", lacks, and keeps `damage` as `keepDamage` does.
/// @param told what follows the name of the project
/// @param root of the project
/// @return `Status::foundProblems` if there is any
Status reportDamage(const SortedDamage& damage, const std::string& product, const host::Path& root,
                    const std::string& told = "");

}  // namespace cli
