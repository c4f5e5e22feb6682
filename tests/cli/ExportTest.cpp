/// tree and export: what people see of a project's metadata. And the example that uses the library itself.
#include <sys/stat.h>

#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using test::expectFailure;
using test::expectSuccess;
using test::readTree;
using test::run;
using test::sample;
using test::Surroundings;

using TreeCommandTest = test::ProjectFixture;
using ExampleTest = test::ProjectFixture;

/// On the sample project, in both kinds of store.
class ExportCommandTest : public test::ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    ExportCommandTest() {
        init(GetParam());
        EXPECT_EQ(run({"scan", root, sample}).status, 0);
    }

    const fs::path file = folder / "exported.xml";
};

INSTANTIATE_TEST_SUITE_P(Stores, ExportCommandTest, testing::Values("fixedPath", "monolithic"), test::nameOfStore);

TEST_F(TreeCommandTest, drawsFoldersAboveWhatLiesInThem) {
    init();
    EXPECT_EQ(run({"scan", root, sample}).status, 0);
    expectSuccess(run({"tree", root}), root.native() + R"(
├── File:README.md
├── Folder:data
│   ├── File:current.csv
│   ├── File:flow-calibration-2024-02.csv
│   └── File:flow-calibration-2024-03.csv
├── Folder:docs
│   ├── File:Prüfprotokoll 2024-03.md
│   └── File:requirements.md
├── Folder:firmware
│   ├── File:Makefile
│   ├── Folder:include
│   │   └── File:controller.h
│   ├── Folder:src
│   │   └── File:controller.c
│   └── Folder:test
│       └── File:controller_test.c
├── Folder:hardware
│   ├── File:driver.cir
│   └── File:parts.csv
└── Folder:model
    └── File:tank.py
)");
}

TEST_F(TreeCommandTest, showsNamesSoThatTheyCannotActOnATerminal) {
    init();
    const std::vector<pm::PathElement> elements{{u"a\u001b[2Jb", u"c\\\n\r\t\u007f\u009b"},
                                                {u"", u"\u202egnp.\u2066\u200f\u2028\u061c\ufeff"},
                                                {u"bytes", {0xDCFF, 0xDCE4}},
                                                {u"kept", u"\u00e4 \u6f22 \U0001f527 \u05d0 \u0915\u094d\u200d\u0937"}};
    const auto store = pm::getMetadataManagerFor(test::toPath(root));
    for (const pm::PathElement& element : elements)
        store->addPath(pm::MetadataPathBuilder().add(element.getType(), element.getLocation()).build());
    expectSuccess(run({"tree", root}), root.native() + R"(
├── a\u001B[2Jb:c\\\n\r\t\u007F\u009B
├── :\u202Egnp.\u2066\u200F\u2028\u061C\uFEFF
├── bytes:\xFF\xE4
└── kept:ä 漢 🔧 א क्‍ष
)");
}

TEST_P(ExportCommandTest, holdsExactlyWhatTheStoreHolds) {
    expectSuccess(run({"export", root, "-o", file}), file.native() + "\n");
    const auto lint = test::runProgram(XMLLINT, {"--noout", file});
    EXPECT_EQ(lint.status, 0) << lint.err;

    fs::create_directories(folder / "other/resources/project");
    fs::copy(file, folder / "other/resources/project/Project.xml");
    const auto content = test::readContent(*pm::getMetadataManagerFor(test::toPath(root)));
    EXPECT_EQ(content.size(), 21U);
    EXPECT_EQ(test::readContent(*pm::getMetadataManagerFor(folder.path() / u"other")), content);

    // And into the other kind of store.
    const auto copy = pm::getNamedFactory(u"fixedPath")->createManager(folder.path() / u"copy");
    pm::copyMetadata(*pm::getMetadataManagerFor(folder.path() / u"other"), *copy);
    EXPECT_EQ(test::readContent(*copy), content);
}

TEST_P(ExportCommandTest, leavesExistingFilesAlone) {
    test::writeBytes(file, "important");
    expectFailure(run({"export", root, "-o", file}), 3, {'"' + file.native() + '"', "exists already"});
    EXPECT_EQ(test::readBytes(file), "important");
}

TEST_P(ExportCommandTest, replacesNothingButFilesAndKeepsTheirPermissions) {
    const fs::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& place : {std::string("/dev/null"), pipe.native(), root.native()}) {
        expectFailure(run({"export", root, "-o", place, "--replace"}), 3, {place});
        expectFailure(run({"report", root, "-o", place, "--replace"}), 3, {place});
    }
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_TRUE(fs::is_fifo(pipe));

    // Through a link, to a file that keeps what it may be used for.
    test::writeBytes(file, "old");
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(file, folder / "link");
    EXPECT_EQ(run({"export", root, "-o", folder / "link", "--replace"}).status, 0);
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_NE(test::readBytes(file), "old");
}

TEST_P(ExportCommandTest, leavesNothingBehindAndTheProjectAlone) {
    const auto before = readTree(root);
    Surroundings surroundings;
    surroundings.variables["TMPDIR"] = folder / "scratch";
    fs::create_directories(folder / "scratch");

    EXPECT_EQ(run({"export", root, "-o", file}, surroundings).status, 0);
    expectFailure(run({"export", root, "-o", folder / "absent/out.xml"}, surroundings), 3,
                  {folder / "absent/out.xml", "No such file"});
    surroundings.prepare = test::limitFileSize(1000);
    for (const std::string command : {"export", "report"})
        expectFailure(run({command, root, "-o", folder / "full.xml"}, surroundings), 3, {"File too large"});

    EXPECT_FALSE(fs::exists(folder / "full.xml"));
    EXPECT_EQ(readTree(folder / "scratch").size(), 0U);
    EXPECT_EQ(readTree(root), before);
}

TEST_F(ExampleTest, isBuiltAgainstTheInstalledPackageAndReadsAProject) {
    init();
    test::writeBytes(folder / "source/notes.txt", "12345");
    ASSERT_EQ(run({"scan", root, folder / "source"}).status, 0);
    Surroundings surroundings;
    surroundings.folder = root;
    const auto outcome = test::runProgram(CLI_TEST_EXAMPLE, {}, surroundings);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "File:notes.txt\n");
}

}  // namespace
