/// Metadata files: their exact form, what survives being written and read back, and what happens when files fail.
/// Replaces `read` of the whole process to make it fail.
#include "project/metadata/MetadataXml.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/metadata/Helpers.hpp"
#include "tests/support/FileSizeLimit.hpp"

using namespace project::metadata;
using namespace test;

namespace {

const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

std::filesystem::path faultyFile;  ///< reading it fails after `goodReads` reads that succeed
int goodReads = -1;
int failedReads = 0;

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

    template <class Error = MetadataWriteFailure>
    Texts writingRaises(const host::Path& path) const {
        return raised<Error>([&] { writeToFile(node, path, false); });
    }

    const TempFolder folder;
    const host::Path file = folder.path() / u"not/there/yet/file.xml";
    const MetadataNodeSpecification node;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer, size_t count) {
    if (goodReads >= 0 && std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)) == faultyFile &&
        goodReads-- == 0) {
        ++failedReads;
        goodReads = 0;
        errno = EIO;
        return -1;
    }
    return syscall(SYS_read, descriptor, buffer, count);
}

TEST_F(XmlTest, theExactFormOfAFile) {
    MetadataNodeSpecification example(u"Example");
    example.put(u"Version", u"2");
    example.put(u"Name", u"A & B");
    example.createChildNode().createChildNode(u"Grandchild").put(u"k", u"");
    example.createChildNode(u"Last").put(u"k", u"\"<'>\t\n\r");
    const std::string nested = declaration +
                               "<Example Name=\"A &amp; B\" Version=\"2\">\n"
                               "    <Info>\n        <Grandchild k=\"\"/>\n    </Info>\n"
                               "    <Last k=\"&quot;&lt;'&gt;&#9;&#10;&#13;\"/>\n</Example>";
    EXPECT_EQ(written(example), nested + "\n");
    EXPECT_EQ(written(example, true), nested);
    EXPECT_EQ(written(node), declaration + "<Info/>\n");
}

TEST_F(XmlTest, everyKindOfKeyAndValueSurvives) {
    MetadataNodeSpecification tree(u"ns:Näme.1-2");
    for (const char16_t* key : {u"_x", u"a.b-c", u"ns:key", u"a:b:c", u":x", u"y:", u"xmlns", u"한"})
        tree.put(key, u"v");
    tree.createChildNode().put(u"k",
                               u"\xD801\xDC01 \xDBFE\xDFFE \x7F\xD7FF\xE000\xFFFD \r\n\t ]]> &amp; &#9; <!-- --> ");
    EXPECT_EQ(readFrom(written(tree)), render(tree));
    MetadataNodeSpecification changed(u"N");
    changed.put(u"\ta\r\n", u"blanks around the key");
    changed.put(u"b", u"\xD800 without a partner \xDFFF");
    EXPECT_EQ(readFrom(written(changed)), u"N{a=blanks around the key}{b=\uFFFD without a partner \uFFFD}");
}

TEST_F(XmlTest, whatCannotBeReadIsAnErrorThatNamesTheFile) {
    const std::string whole = "<r a='1'><c/></r>";
    std::vector<std::string> contents{whole + "x", whole + '\0', "<r a='1' a='2'/>", "<r a='\xE4'/>", "<r>&no;</r>"};
    for (std::size_t size = 0; size < whole.size(); ++size)
        contents.push_back(whole.substr(0, size));
    for (const std::string& content : contents)
        EXPECT_EQ(raised<MetadataReadFailure>([&] { readFrom(content); }), (Texts{file.text(), u""})) << content;
    for (const host::Path& path : {file / u"below", folder.path(), host::Path()})
        EXPECT_EQ(raised<MetadataReadFailure>([&] { readFromFile(path); }), (Texts{path.text(), u""}));
}

TEST_F(XmlTest, nodesThatWereReadAreNodesLikeOthers) {
    writeBytes(toStd(file), "<r b='a value of some length' d='4'><s b='1'/><s b='2'><t b='another value'/></s></r>");
    std::unique_ptr<MetadataNode> root = readFromFile(file);
    const std::u16string& value = root->get(u"b");
    const std::u16string* const address = &value;
    for (const char16_t* key : {u"a", u"c", u"e", u"d"})
        root->put(key, u"new");
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { root->put(u"b", u"\x01"); }), Texts{u"\x01"});
    EXPECT_EQ(&root->get(u"b"), address);
    EXPECT_EQ(value, u"a value of some length");
    const std::u16string whole =
        u"r{a=new}{b=a value of some length}{c=new}{d=new}{e=new}[s{b=1}][s{b=2}[t{b=another value}]]";
    EXPECT_EQ(render(*root), whole);

    // Copies and children live on without what they come from, and do not follow its changes.
    MetadataNodeSpecification copy(*root);
    const MetadataNodeSpecification copyOfCopy(static_cast<const MetadataNode&>(copy));
    const std::shared_ptr<MetadataNode> child = root->getChildNodes().back();
    root->remove(*root->getChildNodes().front());
    root->put(u"b", u"changed");
    root.reset();
    copy.put(u"a", u"changed");
    child->put(u"c", u"3");
    child->createChildNode();
    EXPECT_EQ(render(copyOfCopy), whole);
    EXPECT_EQ(render(*child), u"s{b=2}{c=3}[t{b=another value}][Info]");
}

TEST_F(XmlTest, theRootAloneIsReadWithoutLookingAtTheRest) {
    const auto readRoot = [&](const std::string& bytes) {
        writeBytes(toStd(file), bytes);
        return render(*readRootFromFile(file));
    };
    const std::string children(100'000, ' ');
    // What the fast path takes, and what it does not.
    for (const std::string prolog : {"", "<!DOCTYPE r>"}) {
        EXPECT_EQ(readRoot(prolog + "<r a='1' b='&amp;'><c/><d>"), u"r{a=1}{b=&}");
        EXPECT_EQ(readRoot(prolog + "<r a='1'>" + children + "</s>"), u"r{a=1}");
        EXPECT_EQ(readRoot(prolog + "<r a='1'/>" + children), u"r{a=1}");
        for (const char* const broken : {"<r a='1'", "<r a='&no;'><c/></r>", "<r a='1'/></r>", "<r a='1'></s>"}) {
            EXPECT_EQ(raised<MetadataReadFailure>([&] { readRoot(prolog + broken); }), (Texts{file.text(), u""}))
                << broken;
        }
        EXPECT_EQ(raised<MetadataReadFailure>([&] { readRoot(prolog + "<r a='1'/>" + children + "x"); }),
                  (Texts{file.text(), u""}));
    }
}

TEST_F(XmlTest, anErrorWhileReadingIsNotTheEndOfTheFile) {
    const std::string blanks(500'000, ' ');
    for (const std::string& content : {"<r/>" + blanks, "<r>" + blanks + "<c/></r>"}) {
        EXPECT_NO_THROW(readFrom(content));
        faultyFile = toStd(file);
        for (const int reads : {0, 1, 3}) {
            goodReads = reads;
            failedReads = 0;
            EXPECT_EQ(raised<MetadataReadFailure>([&] { readFromFile(file); }), (Texts{file.text(), u""}));
            EXPECT_GT(failedReads, 0);
            goodReads = -1;
        }
    }
}

TEST_F(XmlTest, aPathThatWouldBeCutOffNamesNoFile) {
    const host::Path path = folder.path() / host::Path(std::u16string(u"a\0b", 3));
    EXPECT_EQ(writingRaises(path), (Texts{path.text(), u""}));
    EXPECT_TRUE(is_empty(folder.std()));
    writeBytes(folder / "a", "<r/>");
    EXPECT_EQ(raised<MetadataReadFailure>([&] { readFromFile(path); }), (Texts{path.text(), u""}));
    EXPECT_EQ(writingRaises(path), (Texts{path.text(), u""}));
    EXPECT_EQ(readBytes(folder / "a"), "<r/>");
}

TEST_F(XmlTest, whatCannotBeWrittenIsAnErrorThatNamesTheFile) {
    const FileSizeLimit limit(16);
    testing::internal::CaptureStderr();
    for (const host::Path& path : {host::Path(u"/dev/full"), file, folder.path()}) {
        EXPECT_EQ(writingRaises(path), (Texts{path.text(), u""}));
        EXPECT_THROW(writeToFile(node, path, true), MetadataWriteFailure);
    }
    const host::Path below = file / u"sub";
    EXPECT_EQ(writingRaises(below / u"a.xml"), (Texts{below.text(), messageOfNested}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "errors are raised, not printed";
}

TEST_F(XmlTest, nobodyIsAskedForTheRestOfATreeThatCannotBeWritten) {
    std::size_t told = 0;
    const auto tell = [&](XmlSink& sink) {
        const std::u16string name = u"Info";
        sink.begin(name);
        for (; told < 100'000; ++told) {
            sink.begin(name);
            sink.end();
            errno = ENOENT;  // as who looks for what comes next
        }
        sink.end();
    };
    EXPECT_THROW(writeToFile(tell, u"/dev/full", false), MetadataWriteFailure);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_LT(told, 10'000U);
    told = 0;
    EXPECT_THROW(writeToFile(tell, folder.path(), false), MetadataWriteFailure);
    EXPECT_EQ(told, 0U);
}

TEST_F(XmlTest, whatIsReadOnlyIsMadeWritableOnceIfTheSettingsAllowIt) {
    const UnprivilegedUser user;
    std::filesystem::create_directories(toStd(file.parentPath()));
    // First the folder of the file that is not there yet, then the file.
    for (const host::Path& obstacle : {file.parentPath(), file}) {
        protect(toStd(obstacle));
        {
            const SettingsOverride settings(makeWritable(u"no"));
            EXPECT_EQ(writingRaises<ReadOnlyMetadataFailure>(file), Texts{obstacle.text()});
            EXPECT_FALSE(isOwnerWritable(toStd(obstacle)));
        }
        const SettingsOverride settings(makeWritable(u"yes"));
        EXPECT_EQ(written(node), declaration + "<Info/>\n");
    }
    const SettingsOverride settings(makeWritable(u"yes"));
    protect(toStd(file));
    const FileSizeLimit limit(0);
    EXPECT_EQ(writingRaises(file), (Texts{file.text(), u""})) << "tried twice at most";
}

TEST_F(XmlTest, aNameWithoutAFolderIsAFileInTheCurrentFolder) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.std());
    {
        const UnprivilegedUser user;
        writeToFile(node, u"out.xml", false);
        EXPECT_EQ(readBytes(folder / "out.xml"), declaration + "<Info/>\n");
        CoreMetadataHandler(u"", u"type", u"Root").ensureCoreMetadataFileExists();
        EXPECT_EQ(readBytes(folder / "Project.xml"), declaration + "<Root MetadataType=\"type\"/>");

        std::filesystem::create_directory(folder / "locked");
        std::filesystem::current_path(folder / "locked");
        protect(folder / "locked");
        const SettingsOverride no(makeWritable(u"no"));
        EXPECT_EQ(writingRaises<ReadOnlyMetadataFailure>(u"out.xml"), Texts{u""});
        const SettingsOverride yes(makeWritable(u"yes"));
        writeToFile(node, u"out.xml", false);
        EXPECT_TRUE(exists(folder / "locked/out.xml"));
    }
    std::filesystem::current_path(before);
}

TEST_F(XmlTest, aReadOnlyFileOrFolderBehindALinkIsMadeWritableToo) {
    const UnprivilegedUser user;
    writeBytes(folder / "target/file.xml", "");
    create_directory_symlink(folder / "target", folder / "folder");
    std::filesystem::create_symlink("folder/file.xml", folder / "file");
    std::filesystem::create_symlink("file", folder / "link");
    // A file that is there, and a new one in a folder.
    for (const auto& [path, obstacle] :
         {std::pair(folder.path() / u"link", "target/file.xml"), std::pair(folder.path() / u"folder/new", "target")}) {
        protect(folder / obstacle);
        {
            const SettingsOverride settings(makeWritable(u"no"));
            const host::Path named = std::string(obstacle) == "target" ? path.parentPath() : path;
            EXPECT_EQ(writingRaises<ReadOnlyMetadataFailure>(path), Texts{named.text()});
            EXPECT_FALSE(isOwnerWritable(folder / obstacle));
        }
        const SettingsOverride settings(makeWritable(u"yes"));
        writeToFile(node, path, false);
        EXPECT_EQ(readBytes(toStd(path)), declaration + "<Info/>\n");
        EXPECT_TRUE(isOwnerWritable(folder / obstacle));
    }
    EXPECT_TRUE(is_symlink(folder / "link"));
}

TEST_F(XmlTest, severalThreadsMayUseItForTheFirstTimeAtOnce) {
    std::vector<std::thread> threads;
    for (char16_t name = u'a'; name < u'i'; ++name) {
        threads.emplace_back([this, own = folder.path() / std::u16string{name}] {
            writeToFile(node, own, false);
            EXPECT_EQ(render(*readFromFile(own)), u"Info");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}
