/// What the library, the stores and the command rely on in a host, as rules that can be checked, for those who
/// implement the headers in host/ themselves. See docs/writing-a-host.md.
///
/// A check works in a scratch folder of its own and for a moment replaces the settings and the service framework of the
/// process, so one thread at a time checks.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host_testing {

/// One rule of the contract.
struct Rule {
    const char* name;       ///< an identifier, which stays the same from version to version
    const char* statement;  ///< what a host promises, in one sentence

    void (*check)();  ///< for `findBreach`
};

/// All rules, those first on which others rely. May be called from any thread.
const std::vector<Rule>& getRules();

/// @return what was expected and what was found, in UTF-8; no value if the host keeps the rule
std::optional<std::string> findBreach(const Rule& rule);

}  // namespace host_testing
