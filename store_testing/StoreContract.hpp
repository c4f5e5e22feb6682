/// The contract of a metadata store (project/metadata/MetadataManager.hpp) as rules that can be checked, for those who
/// write a store of their own. What the rules say and how to use them is told in docs/writing-a-store.md.
///
/// A check works on scratch projects on disk, in the metadata folder that the user's settings name for new projects. It
/// runs in a process of its own, which is forked off this one and killed when it takes too long: a store that crashes
/// or hangs breaks one rule, and the next can be checked. So one thread checks, while the process has no other.
#pragma once

#include <chrono>
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

/// The rule with that name; null if there is none. May be called from any thread.
const Rule* findRule(const std::string& name);

/// How long a check may take that is not told otherwise: much longer than any takes on a slow disk.
constexpr std::chrono::minutes checkLimit(2);

/// Checks one rule in a new scratch folder, which is gone afterwards.
/// @return what was expected and what was found, in UTF-8; no value if the stores keep the rule
/// @throws host::FileSystemException if there is no place for the scratch folder, std::system_error if there is no
///         process to be had, host::InterruptedException if the user wishes to stop
std::optional<std::string> findBreach(const Rule& rule, const FactoryMaker& makeFactory,
                                      std::chrono::milliseconds limit = checkLimit);

}  // namespace project::store_testing
