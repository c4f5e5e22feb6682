// Reading a file whichever allocation fails: an error, or all that is in the file, and never less.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <new>

#include "host/Path.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/EqualTrees.hpp"
#include "tests/faults/AllocationFaults.hpp"
#include "tests/support/TempFolder.hpp"

using namespace test;
using namespace project::metadata;

namespace {

struct Document {
    const char* name;
    std::string text;
    friend std::ostream& operator<<(std::ostream& stream, const Document& document) { return stream << document.name; }
};

std::string repeat(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

class ReadingWithoutMemoryTest : public testing::TestWithParam<Document> {};

TEST_P(ReadingWithoutMemoryTest, LeavesNothingOut) {
    const TempFolder folder(memoryFolder());
    writeBytes(folder / "file.xml", GetParam().text);
    const host::Path file = toPath(folder / "file.xml");
    const auto whole = readFromFile(file);
    std::map<std::string, int> outcomes;
    for (const bool isLasting : {false, true}) {
        long failed = 1;
        for (long allocation = 1; failed > 0; ++allocation) {
            const char* outcome = "read";
            std::unique_ptr<MetadataNode> found;
            startAllocationFaults(allocation, isLasting);
            try {
                found = readFromFile(file);
            } catch (const MetadataReadFailure&) {
                outcome = "refused";
            } catch (const std::bad_alloc&) {
                outcome = "no memory";
            } catch (...) {
                outcome = "another error";
            }
            failed = stopAllocationFaults().failed;
            ++outcomes[outcome];
            if (found) {
                ASSERT_TRUE(store_support::equalTrees(*found, *whole))
                    << "allocation " << allocation << (isLasting ? " and all after it" : "");
            }
        }
    }
    EXPECT_GT(outcomes["no memory"] + outcomes["refused"], 0);
    EXPECT_EQ(outcomes["another error"], 0);
    std::printf("%s:", GetParam().name);
    for (const auto& [outcome, count] : outcomes)
        std::printf(" %d %s", count, outcome.c_str());
    std::printf("\n");
}

INSTANTIATE_TEST_SUITE_P(
    Documents, ReadingWithoutMemoryTest,
    testing::Values(
        Document{"plain", "<r>" + repeat("<n key=\"value &amp; value\" other=\"&#65;\"><c/></n>", 40) + "</r>"},
        Document{"namespaces", "<r xmlns:z='u'>" + repeat("<z:n z:key='value' key='a&lt;b' xmlns='v'/>", 40) + "</r>"},
        Document{"entities",
                 "<!DOCTYPE r [<!ENTITY e 'some text'><!ENTITY f '&e;, &e;'>"
                 "<!ATTLIST n given CDATA 'by default'>]><r>" +
                     repeat("<n key='&f; and &e;'/>", 40) + "</r>"},
        Document{"encoding", "<?xml version='1.0' encoding='windows-1252'?><r>" +
                                 repeat("<n key='\xE4\xF6\xFC\x80'>\xDF</n>", 400) + "</r>"},
        Document{"longTexts", "<r><n key='" + repeat("0123456789", 2000) + "&lt;'/></r>"}),
    [](const auto& param) { return param.param.name; });

}  // namespace
