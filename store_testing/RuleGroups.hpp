/// The rules by what they are about.
#pragma once

#include <vector>

#include "store_testing/StoreContract.hpp"

namespace project::store_testing {

std::vector<Rule> getProjectRules();       ///< a project on disk: when it is made, whose it is, what is written
std::vector<Rule> getOperationRules();     ///< what each operation does
std::vector<Rule> getTextRules();          ///< paths with any texts
std::vector<Rule> getRefusalRules();       ///< what is refused, and what is stopped
std::vector<Rule> getSharingRules();       ///< several stores on one project
std::vector<Rule> getNotificationRules();  ///< changes as file jobs

}  // namespace project::store_testing
