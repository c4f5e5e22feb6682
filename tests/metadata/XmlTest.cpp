/// Metadata files: their exact form, what survives being written and read back, and what happens when files fail.
#include "project/metadata/MetadataXml.hpp"

#include <thread>

#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/metadata/ForeignNode.hpp"
#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/SystemFaults.hpp"

using namespace project::metadata;
using namespace test;

namespace {

const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

class XmlTest : public testing::Test {
protected:
    std::string written(const MetadataNode& tree, bool compactEnding = false) const {
        writeToFile(tree, file, compactEnding);
        return readBytes(toStd(file));
    }

    std::u16string readFrom(const std::string& bytes) const {
        writeBytes(toStd(file), bytes);
        return render(*readFromFile(file));
    }

    std::u16string readBack(const MetadataNode& tree) const { return readFrom(written(tree)); }

    /// What is raised by reading `path`, and by writing to it.
    template <class Error>
    static Texts readingRaises(const host::Path& path) {
        return raised<Error>([&] { readFromFile(path); });
    }
    template <class Error>
    Texts writingRaises(const host::Path& path) const {
        return raised<Error>([&] { writeToFile(node, path, false); });
    }

    const TempFolder folder;
    const host::Path file = folder.path() / u"not/there/yet/file.xml";
    const MetadataNodeSpecification node;
};

}  // namespace

TEST_F(XmlTest, theExactFormOfAFile) {
    EXPECT_EQ(written(node), declaration + "<Info/>\n");
    EXPECT_EQ(written(node, true), declaration + "<Info/>");

    MetadataNodeSpecification example(u"Example");
    example.put(u"Version", u"2");
    example.put(u"Name", u"A & B");
    MetadataNode& child = example.createChildNode();
    const std::string start = declaration + "<Example Name=\"A &amp; B\" Version=\"2\">\n";
    EXPECT_EQ(written(example), start + "    <Info/>\n</Example>\n");
    EXPECT_EQ(written(example, true), start + "    <Info/>\n</Example>");

    child.createChildNode(u"Grandchild").put(u"k", u"");
    example.createChildNode(u"Last");
    const std::string nested = start + "    <Info>\n        <Grandchild k=\"\"/>\n    </Info>\n    <Last/>\n</Example>";
    EXPECT_EQ(written(example), nested + "\n");
    EXPECT_EQ(written(example, true), nested);
    EXPECT_EQ(written(node), declaration + "<Info/>\n") << "nothing is left of the longer file";
}

TEST_F(XmlTest, otherNodesAreWrittenThroughTheirInterface) {
    const ForeignNode foreign(u"foreign", {{u"b", u"\"<'>&"}, {u"a", u"\t\n\r"}});
    EXPECT_EQ(written(foreign), declaration + "<foreign b=\"&quot;&lt;'&gt;&amp;\" a=\"&#9;&#10;&#13;\"/>\n");
}

TEST_F(XmlTest, everyValueThatANodeAcceptsSurvives) {
    std::u16string all;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        if (isValidAttribute({static_cast<char16_t>(unit)}) && (unit < 0xD800 || unit > 0xDFFF))
            all += static_cast<char16_t>(unit);
    }
    for (const std::u16string& value :
         Texts{u"", all, u" blanks, inside  and around\t", u"\r\n\r\n",
               u"\"quoted\" & 'quoted' <tag/> ]]> &amp; &#9; <!-- -->", u"\xD801\xDC01 \xD83D\xDE00 \xDBFE\xDFFE"}) {
        MetadataNodeSpecification tree(u"Tree");
        tree.put(u"key", value);
        tree.createChildNode().put(u"key", value);
        EXPECT_EQ(readBack(tree), render(tree));
    }
}

TEST_F(XmlTest, surrogatesWithoutAPartnerBecomeReplacementCharacters) {
    MetadataNodeSpecification tree(u"N");
    tree.put(u"a", u"x\xD800y\xDBFF");
    tree.put(u"b", u"\xDC00z\xDFFF");
    EXPECT_EQ(readBack(tree), u"N{a=x\uFFFDy\uFFFD,b=\uFFFDz\uFFFD}");
}

TEST_F(XmlTest, everyKindOfKeySurvivesButForTheBlanksAroundIt) {
    MetadataNodeSpecification tree(u"ns:Näme.1-2");
    for (const char16_t* key : {u"a", u"_x", u"a.b-c", u"ns:key", u"a:b:c", u":x", u"y:", u"xmlns", u"é", u"한"})
        tree.put(key, u"v");
    EXPECT_EQ(readBack(tree), render(tree));

    MetadataNodeSpecification blanks(u"N");
    blanks.put(u" a ", u"1");
    blanks.put(u"\tb\r\n", u"2");
    EXPECT_EQ(readBack(blanks), u"N{a=1,b=2}");
}

TEST_F(XmlTest, readsElementsAndAttributesAndNothingElse) {
    const std::pair<std::string, std::u16string> cases[] = {
        {"<r></r>", u"r"},
        {"<r>text<!-- c --><a/><![CDATA[<b/>]]><?pi x?><a k='1'>text</a>\n<c><d/></c></r><!-- end -->",
         u"r[a,a{k=1},c[d]]"},
        {"<!DOCTYPE r [<!ENTITY e 'text'>]><r a='&e;&#65;'>&e;</r>", u"r{a=textA}"},
        {"<p:r xmlns:p='u:p' xmlns='u:d' p:a='1' a='2'><p:c/></p:r>", u"p:r{a=2,p:a=1,xmlns=u:d,xmlns:p=u:p}[p:c]"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xE4'/>", u"r{a=ä}"},
        {"\xEF\xBB\xBF<r a='\xC3\xA4'/>", u"r{a=ä}"},
        {"<r a='two\nlines'/>", u"r{a=two lines}"},
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(readFrom(bytes), expected) << bytes;
}

TEST_F(XmlTest, aFileThatIsNotWellFormedIsAnErrorThatNamesIt) {
    MetadataNodeSpecification example(u"Example");
    example.put(u"Name", u"A & B");
    example.createChildNode().createChildNode();
    const std::string whole = written(example, true);
    std::vector<std::string> contents{"no XML", "<a/><b/>", "<a></b>", "<r a='1' a='2'/>", "<r>&undefined;</r>"};
    contents.insert(contents.end(), {"<r a='\xE4'/>", whole + "x", whole + '\0'});
    for (std::size_t size = 0; size < whole.size(); ++size)
        contents.push_back(whole.substr(0, size));

    testing::internal::CaptureStderr();
    for (const std::string& content : contents)
        EXPECT_EQ(raised<MetadataReadFailure>([&] { readFrom(content); }), (Texts{file.text(), u""})) << content;
    EXPECT_EQ(readFrom("<r xml:id='1 2'/>"), u"r{xml:id=1 2}") << "only validity asks for more";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "errors are raised, not printed";
}

TEST_F(XmlTest, whatIsNoReadableFileIsAnErrorThatNamesIt) {
    writeBytes(folder / "secret.xml", "<r/>");
    std::filesystem::permissions(folder / "secret.xml", std::filesystem::perms::none);
    const UnprivilegedUser user;
    for (const host::Path& path :
         {file, folder.path(), folder.path() / u"secret.xml", folder.path() / std::u16string(300, u'x'), host::Path()})
        EXPECT_EQ(readingRaises<MetadataReadFailure>(path), (Texts{path.text(), u""}));
}

TEST_F(XmlTest, insideOfAHandlerTheCauseIsWhatIsBeingHandled) {
    try {
        throw host::FileSystemException(u"/elsewhere", std::make_error_code(std::errc::io_error));
    } catch (const host::FileSystemException&) {
        EXPECT_EQ(readingRaises<MetadataReadFailure>(file), (Texts{file.text(), messageOfNested}));
        EXPECT_EQ(writingRaises<MetadataWriteFailure>(folder.path()), (Texts{folder.path().text(), messageOfNested}));
    }
}

TEST_F(XmlTest, anErrorWhileReadingIsNotTheEndOfTheFile) {
    std::string children;
    while (children.size() < 100'000)
        children += "<c k='v'/>\n";
    const std::string blanks(100'000, ' ');
    for (const std::string& content : {"<r>" + children + "</r>", "<r/>" + blanks, "<r>" + blanks + "<c/></r>"}) {
        EXPECT_NO_THROW(readFrom(content));
        for (const int goodReads : {0, 1, 3}) {
            const ReadFault fault(toStd(file), goodReads);
            EXPECT_EQ(readingRaises<MetadataReadFailure>(file), (Texts{file.text(), u""}));
            EXPECT_TRUE(fault.hasStruck());
        }
    }
}

TEST_F(XmlTest, anAttributeThatANodeRefusesIsAnErrorOfItsOwn) {
    EXPECT_EQ(raised<PutMetadataKeyFailure>([&] { readFrom("<r><c \xCD\xB0='1'/></r>"); }), Texts{u"\u0370"});
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { readFrom("<r a='x&#x10001;'/>"); }), Texts{u"x\U00010001"});
    EXPECT_EQ(readFrom("<r a='&#x10000;'/>"), u"r{a=\U00010000}");
}

TEST_F(XmlTest, aDiskThatIsFullIsAnErrorThatNamesTheFile) {
    MetadataNodeSpecification trees[2];
    for (int i = 0; i < 10'000; ++i)
        trees[1].createChildNode(u"Child");
    testing::internal::CaptureStderr();
    for (const MetadataNode& tree : trees) {
        for (const bool compactEnding : {false, true}) {
            const FileSizeLimit limit(16);
            for (const host::Path& path : {host::Path(u"/dev/full"), file})
                EXPECT_EQ(raised<MetadataWriteFailure>([&] { writeToFile(tree, path, compactEnding); }),
                          (Texts{path.text(), u""}));
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "errors are raised, not printed";
}

TEST_F(XmlTest, aFileThatCannotBeMadeIsAnErrorThatNamesIt) {
    for (const host::Path& path : {folder.path(), folder.path() / std::u16string(300, u'x')})
        EXPECT_EQ(writingRaises<MetadataWriteFailure>(path), (Texts{path.text(), u""}));

    writeBytes(folder / "file", "");
    const host::Path below = folder.path() / u"file/sub";
    EXPECT_EQ(writingRaises<MetadataWriteFailure>(below / u"a.xml"), (Texts{below.text(), messageOfNested}));
}

TEST_F(XmlTest, whatIsReadOnlyIsMadeWritableIfTheSettingsAllowIt) {
    const UnprivilegedUser user;
    std::filesystem::create_directories(toStd(file.parentPath()));
    // First the folder of the file that is not there yet, then the file.
    for (const host::Path& obstacle : {file.parentPath(), file}) {
        const WriteProtection protection(toStd(obstacle));
        for (const char16_t* value : {u"no", u"Yes", u"true", u""}) {
            const SettingsOverride settings(makeWritable(value));
            EXPECT_EQ(writingRaises<ReadOnlyMetadataFailure>(file), Texts{obstacle.text()});
            EXPECT_FALSE(isOwnerWritable(toStd(obstacle)));
        }
        const SettingsOverride settings(makeWritable(u"yes"));
        EXPECT_EQ(written(node), declaration + "<Info/>\n");
        EXPECT_TRUE(isOwnerWritable(toStd(obstacle)));
    }
}

TEST_F(XmlTest, writingIsTriedTwiceAtMost) {
    const UnprivilegedUser user;
    const SettingsOverride settings(makeWritable(u"yes"));
    EXPECT_EQ(writingRaises<FailedToMakeMetadataWritable>(u"/etc/passwd"), (Texts{u"/etc/passwd", messageOfNested}));

    writeBytes(toStd(file), "");
    const WriteProtection protection(toStd(file));
    const FileSizeLimit limit(0);
    EXPECT_EQ(writingRaises<MetadataWriteFailure>(file), (Texts{file.text(), u""}));
    EXPECT_TRUE(isOwnerWritable(toStd(file)));
}

TEST_F(XmlTest, severalThreadsMayUseItForTheFirstTimeAtOnce) {
    MetadataNodeSpecification tree(u"Tree");
    tree.createChildNode().put(u"ns:key", u"ä & \xD83D\xDE00");
    std::vector<std::thread> threads;
    for (char16_t name = u'a'; name < u'i'; ++name) {
        threads.emplace_back([&, name] {
            const host::Path own = folder.path() / std::u16string{name} / u"file.xml";
            for (int i = 0; i < 50; ++i) {
                writeToFile(tree, own, i % 2 == 0);
                EXPECT_EQ(render(*readFromFile(own)), render(tree));
            }
            EXPECT_THROW(readFromFile(own.parentPath()), MetadataReadFailure);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}
