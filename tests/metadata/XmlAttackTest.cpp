/// Files that are made to harm whoever reads them: they take little time and memory, open nothing, and print nothing.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <thread>

#include <libxml/globals.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlversion.h>

#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/XmlDocuments.hpp"
#include "tests/metadata/XmlOracle.hpp"

using namespace project::metadata;
using namespace test;

namespace {

/// libxml2 itself refuses what its entities make too large since 2.11.
const std::u16string tooMuch =
    LIBXML_VERSION >= 21100
        ? u"unreadable"
        : u"refused: its entities stand for more than 1 MB, and for more than 16 times as much as was read up to there";

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

std::string numbered(const std::string& before, std::size_t count, const std::string& after) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += before + std::to_string(i) + after;
    return result;
}

/// Runs `action` in a process of its own, and fails unless that returns true, in a few seconds and some 100 MB.
void runApart(const std::function<bool()>& action) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(action() ? 0 : 1);
    }
    int status = 0;
    rusage use{};
    ASSERT_EQ(wait4(child, &status, 0, &use), child);
    EXPECT_EQ(status, 0) << "died, or gave something else";
    EXPECT_LT(use.ru_utime.tv_sec + use.ru_stime.tv_sec, 5);
#ifndef ADDRESS_SANITIZER  // which takes memory of its own
    EXPECT_LT(use.ru_maxrss, 400'000) << "KB";
#endif
}

class XmlAttackTest : public testing::Test {
protected:
    void expectOutcome(const std::string& document, const std::u16string& outcome) const {
        writeBytes(file, document);
        runApart([&] {
            const std::u16string found = readByLibrary(file, false);
            EXPECT_EQ(found, outcome);
            return found == outcome;
        });
    }

    const TempFolder folder;
    const std::string file = folder / "file.xml";
};

}  // namespace

TEST_F(XmlAttackTest, entitiesStandForLittleMoreThanWasRead) {
    const auto withEntity = [](const std::string& text, const std::string& content) {
        return "<!DOCTYPE r [<!ENTITY a '" + text + "'>]><r" + content;
    };
    const std::string thousand(1'000, 'x');
    expectOutcome(withEntity(thousand, " k='" + repeated("&a;", 25'000) + "'/>"), tooMuch);
    expectOutcome(withEntity(std::string(50'000, 'x'), " k='" + repeated("&a;", 20'000) + "'/>"), tooMuch);
    expectOutcome(withEntity(std::string(500'000, 'x'), numbered(" k", 1'500, "='&a;'") + "/>"), tooMuch);
    expectOutcome(withEntity(thousand, ">" + repeated("<s k='&a;'/>", 1'100) + "</r>"), tooMuch);
    // What is allowed: 1 MB in a small file, and 16 times of what was read in a large one.
    const std::u16string value(1'000, u'x');
    expectOutcome(withEntity(thousand, " k='&a;' l='&a;'/>"), u"r{k=" + value + u"}{l=" + value + u"}");
    runApart([&] {
        writeBytes(file, withEntity(std::string(30, 'x'), ">" + repeated("<s k='&a;'/>", 500'000) + "</r>"));
        return readFromFile(host::Path::fromAccessName(file))->getChildNodes().size() == 500'000;
    });
}

TEST_F(XmlAttackTest, entitiesThatLeadToThemselvesAreNotFollowed) {
    // The default value makes libxml2 2.9 believe that it knows them.
    const std::string circle = "<!ENTITY a \"&b;\"><!ATTLIST r d CDATA \"&a;\"><!ENTITY b \"&a;\">";
    for (const std::string start : {"<!DOCTYPE r SYSTEM \"x\" [", "<!DOCTYPE r [<!ENTITY % p \"\"> %p;"}) {
        for (const char* const content :
             {"<r k=\"&a;\"/>", "<r><s k=\"v\"/><s k=\"&a;\"/></r>", "<r>&a;<s k=\"&a;\"/></r>"}) {
            writeBytes(file, start + circle + "]>" + content);
            runApart([&] {
                const std::u16string outcome = readByLibrary(file, false);
                return outcome == tooMuch || outcome == u"unreadable";
            });
        }
    }
}

TEST_F(XmlAttackTest, whatGrowsFasterThanTheFileIsRefused) {
    std::string powers = "<!ENTITY l0 'ha'>";
    for (int i = 1; i < 30; ++i)
        powers += "<!ENTITY l" + std::to_string(i) + " '" + repeated("&l" + std::to_string(i - 1) + ";", 10) + "'>";
    for (const char* const content : {"<r k='&l29;'/>", "<r>&l29;</r>", "<r k='&l3;' l='&l8;'/>"})
        expectOutcome("<!DOCTYPE r [" + powers + "]>" + content, u"unreadable");
    expectOutcome(repeated("<a>", 1'000'000), u"unreadable");
}

TEST_F(XmlAttackTest, defaultAttributesAreNoneAndFewAreAllowed) {
    const auto withDefaults = [](std::size_t count, const std::string& content) {
        return "<!DOCTYPE d [<!ATTLIST d" + numbered(" k", count, " CDATA 'v'") + "> ] ><d>" + content + "</d>";
    };
    expectOutcome(withDefaults(100, "<d/><d k1='w'/>"), u"d[d][d{k1=w}]");
    const std::u16string tooMany = u"refused: its document type gives more than 100 attributes to one kind of element";
    expectOutcome(withDefaults(101, "<d/>"), tooMany);
    expectOutcome(withDefaults(1'000, repeated("<d/>", 100'000)), tooMany);
}

TEST_F(XmlAttackTest, nothingOutsideOfTheFileIsOpened) {
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string external = "SYSTEM '" + fifo + "'";
    // Whoever opened the FIFO would wait for ever.
    expectOutcome("<!DOCTYPE r " + external + "><r/>", u"r");
    expectOutcome("<!DOCTYPE r [<!ENTITY x " + external + ">]><r>&x;<s/></r>", u"r[s]");
    expectOutcome("<!DOCTYPE r [<!ENTITY x " + external + ">]><r a='&x;'/>", u"unreadable");
    expectOutcome("<!DOCTYPE r [<!ENTITY % x " + external + "> %x;]><r a='b'/>", u"r{a=b}");
    expectOutcome("<r xmlns:i='http://www.w3.org/2001/XInclude'><i:include href='" + fifo + "'/></r>",
                  u"r{xmlns:i=http://www.w3.org/2001/XInclude}[i:include{href=" +
                      host::Path::fromAccessName(fifo).text() + u"}]");
}

namespace {

int callCount = 0;
void countError(void* /*context*/, const char* /*format*/, ...) {
    ++callCount;
}

}  // namespace

TEST_F(XmlAttackTest, nothingIsPrintedAndTheHostKeepsItsHandlers) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    xmlSetGenericErrorFunc(&callCount, countError);
    xmlSetStructuredErrorFunc(&callCount, [](void* /*context*/, auto* /*error*/) { ++callCount; });
    const xmlStructuredErrorFunc structured = xmlStructuredError;
    const auto readAll = [&] {
        for (const XmlGroup& group : allXmlGroups()) {
            for (std::size_t i = 0; i < std::min<std::size_t>(group.documents.size(), 50); ++i) {
                const std::string& document = group.documents[i];
                if (document.size() > 100'000)
                    continue;
                writeBytes(file, document);
                readByLibrary(file, false);
            }
        }
        for (unsigned unit = 0; unit < 0x10000; ++unit)
            isValidKey({u'\u00E4', static_cast<char16_t>(unit)});
    };
    readAll();
    EXPECT_EQ(callCount, 0);
    EXPECT_EQ(xmlGenericError, countError);
    EXPECT_EQ(xmlGenericErrorContext, &callCount);
    EXPECT_EQ(xmlStructuredError, structured);
    EXPECT_EQ(xmlStructuredErrorContext, &callCount);
    xmlSetGenericErrorFunc(nullptr, nullptr);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    std::thread(readAll).join();  // with libxml2's own handlers
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
