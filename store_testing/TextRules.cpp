// Paths with any texts in their steps.

#include <algorithm>
#include <initializer_list>

#include "host/Text.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

MetadataPath steps(std::initializer_list<PathElement> elements) {
    return MetadataPath(std::vector<PathElement>(elements));
}

/// The path and a number that tells it from others of the same text.
std::string nameOf(const std::vector<MetadataPath>& all, std::size_t index) {
    const std::string text = host::toUtf8(all[index].string());
    return "path " + std::to_string(index) + ", \"" + (text.size() > 100 ? text.substr(0, 100) + "..." : text) + '"';
}

/// Sets a node of its own at every one of `all`, and expects to find them, and no other path below the root, in a store
/// that is opened anew.
void requireKeptApart(const ScratchProject& project, const std::vector<MetadataPath>& all) {
    {
        const auto store = project.open();
        for (std::size_t i = 0; i < all.size(); ++i)
            store->setNode(all[i], *node(std::to_string(i)));
    }
    const auto store = project.open();
    for (std::size_t i = 0; i < all.size(); ++i)
        requireEqual("the node at " + nameOf(all, i), describe(node(std::to_string(i)).get()),
                     describe(store->getNode(all[i]).get()));
    std::vector<MetadataPath> found;
    for (const auto& [each, text] : read(*store)) {
        if (text != "no node")
            found.push_back(each);
    }
    require(found.size() == all.size(),
            "expected " + std::to_string(all.size()) + " paths with nodes, found " + std::to_string(found.size()));
    for (std::size_t i = 0; i < all.size(); ++i)
        require(std::count(found.begin(), found.end(), all[i]) == 1,
                nameOf(all, i) + ": expected among the children of its parent, found not");

    // The scratch folder lies open around the project.
    const std::string inside = project.metadataFolder().accessName() + '/';
    for (const auto& file : readFiles(project.folder())) {
        const std::string name = project.folder().accessName() + '/' + file.first;
        const bool leadsThere = name.back() == '/' && inside.compare(0, name.size(), name) == 0;
        require(leadsThere || name.compare(0, inside.size(), inside) == 0,
                "expected files in the metadata folder only, found \"" + name + '"');
    }
}

void keepsHostileTextsApart(const ScratchProject& project) {
    const std::u16string texts[] = {u"",
                                    u".",
                                    u"..",
                                    u"../../../..",
                                    u"/",
                                    u"/tmp",
                                    u"a/b",
                                    u"a\\b",
                                    u"a",
                                    u"A",
                                    u"%2E",
                                    u"%",
                                    u"\\u0041",
                                    u"&#65;",
                                    u"=",
                                    u"a=b",
                                    u"'",
                                    u"''; --",
                                    u"Project",
                                    u"Project.xml",
                                    u"CON",
                                    u"~",
                                    u"-rf",
                                    u"*",
                                    u"\x1\x1F\x7F\u0085",
                                    u"\n\t\r ",
                                    u" ",
                                    u"  ",
                                    std::u16string(1, 0),
                                    std::u16string(u"a\0b", 3),
                                    {0xDCFF, u'x', 0xD800},
                                    {0xDC00, 0xD800},
                                    {0xFFFD},
                                    {0xD83D, 0xDE00, 0xD83D, 0xDC00},
                                    u"\u202Efdp.exe",
                                    u"\uFFFE\uFFFF",
                                    u"\uFEFF",
                                    u"<&\"'>",
                                    u"\u00E4",
                                    u"a\u0308",
                                    u"\u00DF",
                                    u"\u0130"};
    std::vector<MetadataPath> all;
    for (const std::u16string& text : texts) {
        all.push_back(steps({{text, u"x"}}));
        all.push_back(steps({{u"x", text}}));
        all.push_back(steps({{u"below", u"x"}, {u"x", text}}));
    }
    requireKeptApart(project, all);
}

void tellsPathsApartByTheirSteps(const ScratchProject& project) {
    requireKeptApart(project,
                     {steps({{u"x", u"a:b"}}), steps({{u"x:a", u"b"}}), steps({{u"x", u"a|y:b"}}),
                      steps({{u"x", u"a"}, {u"y", u"b"}}), steps({{u"x", u"|:"}}), steps({{u"x", u""}, {u"", u""}}),
                      steps({{u"x", u"a:b"}, {u"", u"c"}}), steps({{u"x:a", u"b"}, {u"", u"c"}})});
}

void keepsOneNameForFileAndFolder(const ScratchProject& project) {
    std::vector<MetadataPath> all;
    for (const char16_t* name : {u"a", u"a.xml", u"a.xml.xml", u"a.db"}) {
        for (const char16_t* type : {u"File", u"Folder"}) {
            all.push_back(steps({{type, name}}));
            all.push_back(steps({{type, name}, {type, name}}));
        }
    }
    requireKeptApart(project, all);
}

void keepsLongTexts(const ScratchProject& project) {
    std::vector<MetadataPath> all;
    for (const char16_t unit : {u'x', u'/', u'\u00E4'}) {
        for (const std::size_t length : {255U, 256U, 9999U, 10000U}) {
            all.push_back(steps({{u"x", std::u16string(length, unit)}}));
            all.push_back(steps({{std::u16string(length, unit), u"x"}}));
        }
    }
    requireKeptApart(project, all);
}

}  // namespace

std::vector<Rule> getTextRules() {
    return {
        {"KeepsHostileTextsApart",
         "Paths with any texts in their steps, be they empty, \"..\", control characters, no valid UTF-16 or different "
         "in case only, are different paths, and all files lie in the metadata folder.",
         keepsHostileTextsApart},
        {"TellsPathsApartByTheirSteps", "Paths with one text form but different steps are different paths.",
         tellsPathsApartByTheirSteps},
        {"KeepsOneNameForFileAndFolder",
         "The same name is kept for steps of different types, for a path and its child, and with the ending of a file.",
         keepsOneNameForFileAndFolder},
        {"KeepsLongTexts",
         "A type or a location of 10,000 characters is kept, and told from one that is shorter by one.",
         keepsLongTexts},
    };
}

}  // namespace project::store_testing
