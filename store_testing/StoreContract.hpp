/// The contract of a metadata store (project/metadata/MetadataManager.hpp) as rules that can be checked, for those who
/// write a store of their own. What the rules say and how to use them is told in docs/writing-a-store.md.
///
/// A check works on scratch projects on disk, in the metadata folder that the user's settings name for new projects. It
/// registers a `FileJobManager` in the service framework of the process for a while, so one thread at a time checks.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "project/metadata/MetadataManagerFactory.hpp"

namespace project::store_testing {

/// Makes, or finds, the factory of the stores that are to be checked. It is called for every store that is opened.
using FactoryMaker = std::function<std::shared_ptr<metadata::MetadataManagerFactory>()>;

class ScratchProject;

/// One rule of the contract.
struct Rule {
    const char* name;       ///< an identifier, which stays the same from version to version
    const char* statement;  ///< what a store promises, in one sentence

    void (*check)(const ScratchProject& project);  ///< for `findBreach`
};

/// All rules of the contract, those first on which others rely. May be called from any thread.
const std::vector<Rule>& getRules();

/// Checks one rule in a new scratch folder, which is gone afterwards.
/// @return what was expected and what was found, in UTF-8; no value if the stores keep the rule
/// @throws host::FileSystemException if there is no place for the scratch folder
std::optional<std::string> findBreach(const Rule& rule, const FactoryMaker& makeFactory);

}  // namespace project::store_testing
