/// Documents of all kinds that XML allows, and of many that it does not, in groups.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test {

struct XmlGroup {
    const char* name;
    std::vector<std::string> documents;
    /// How many of them can be read as metadata, so that none of the groups is about refusals alone without being meant
    /// so. All others are refused.
    std::size_t acceptedCount;
};

const std::vector<XmlGroup>& allXmlGroups();

}  // namespace test
