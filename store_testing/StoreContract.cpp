#include "store_testing/StoreContract.hpp"

#include <algorithm>

#include "store_testing/ChildProcess.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

const std::vector<Rule>& getRules() {
    static const auto& rules = *new auto([] {
        std::vector<Rule> all;
        for (const auto& group : {getProjectRules(), getOperationRules(), getTextRules(), getRefusalRules(),
                                  getSharingRules(), getNotificationRules()})
            all.insert(all.end(), group.begin(), group.end());
        return all;
    }());
    return rules;
}

const Rule* findRule(const std::string& name) {
    const auto& rules = getRules();
    const auto found = std::find_if(rules.begin(), rules.end(), [&](const Rule& rule) { return rule.name == name; });
    return found == rules.end() ? nullptr : &*found;
}

std::optional<std::string> findBreach(const Rule& rule, const FactoryMaker& makeFactory,
                                      std::chrono::milliseconds limit) {
    const ScratchProject project(makeFactory);
    return ChildProcess([&] { rule.check(project); }).wait(limit);
}

}  // namespace project::store_testing
