#include "store_testing/StoreContract.hpp"

#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

const std::vector<Rule>& getRules() {
    static const std::vector<Rule> rules = [] {
        std::vector<Rule> all;
        for (const auto& group : {getProjectRules(), getOperationRules(), getTextRules(), getRefusalRules(),
                                  getSharingRules(), getNotificationRules()})
            all.insert(all.end(), group.begin(), group.end());
        return all;
    }();
    return rules;
}

std::optional<std::string> findBreach(const Rule& rule, const FactoryMaker& makeFactory) {
    const ScratchProject project(makeFactory);
    try {
        rule.check(project);
        return std::nullopt;
    } catch (const Breach& breach) {
        return breach.what();
    } catch (...) {
        return "expected no error, found " + describeCurrentException();
    }
}

}  // namespace project::store_testing
