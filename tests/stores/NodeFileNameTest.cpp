#include <gtest/gtest.h>

#include <map>
#include <random>

#include "host/Path.hpp"
#include "host/Text.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

using namespace stores::fixed_path;
using project::metadata::PathElement;

namespace {

TEST(NodeFileNameTest, OrdinaryNamesStayReadable) {
    EXPECT_EQ(nodeFileName({u"File", u"main file-2.c"}), u"File=main file-2.c.xml");
    EXPECT_EQ(nodeFileName({u"File", u".gitignore"}), u"File=.gitignore.xml");
    EXPECT_EQ(nodeFolderName({u"Folder", u"Größe"}), u"Folder=Größe");
    EXPECT_EQ(nodeFolderName({u"Folder", u".."}), u"Folder=.%2E");
    EXPECT_EQ(nodeFolderName({u".", u"a/b"}), u"%2E=a%2Fb");
    EXPECT_EQ(nodeFolderName({u"File", u"a.xml"}), u"File=a%2Exml");
}

TEST(NodeFileNameTest, DifferentElementsHaveDifferentSafeNames) {
    const std::u16string alphabet = {u'a', u'.', u'/', u'%',   u'=',   u'~',   u'x', u'm',
                                     u'l', u' ', u'u', 0xD83D, 0xDE00, 0xDC80, 1};
    std::mt19937 random(1);
    const auto randomText = [&] {
        std::u16string text(random() % 6, u' ');
        for (char16_t& unit : text)
            unit = alphabet[random() % alphabet.size()];
        return random() % 8 == 0 ? std::u16string(150, u'%') + text : text;
    };
    std::map<std::string, std::pair<std::u16string, std::u16string>> owners;
    for (int i = 0; i < 50000; ++i) {
        const std::pair<std::u16string, std::u16string> element(randomText(), randomText());
        const std::u16string folder = nodeFolderName({element.first, element.second});
        const std::string name = host::Path(folder).accessName();
        const auto [owner, isNew] = owners.emplace(name, element);
        ASSERT_TRUE(isNew || owner->second == element) << name;
        ASSERT_LE(name.size(), 200U);
        ASSERT_EQ(name.find('/'), std::string::npos);
        ASSERT_EQ(host::Path::fromAccessName(name).text(), folder) << "would be listed under another name";
        ASSERT_TRUE(isNodeFolder(folder)) << name;
        ASSERT_TRUE(isNodeFile(nodeFileName({element.first, element.second}))) << name;
    }
}

TEST(NodeFileNameTest, OtherFilesAreNotTakenForNodes) {
    for (const char16_t* name : {u"Project.xml", u"uuid-1234.xml", u".pending-1", u"a=b.txt"})
        EXPECT_FALSE(isNodeFile(name));
}

}  // namespace
