/// Documents of all kinds that XML allows, and of many that it does not, in groups.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test {

struct XmlGroup {
    const char* name;
    std::vector<std::string> documents;
    /// How many of them can be read as metadata: a group that is refused by mistake is noticed. The others are refused.
    std::size_t acceptedCount;
    /// How many of the others some versions of libxml2 from 2.9.14 to 2.15 take.
    std::size_t undecidedCount = 0;
};

const std::vector<XmlGroup>& allXmlGroups();

}  // namespace test
