// The disk form of the store "fixedPath".

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/Uuid.hpp"
#include "store_support/BatchJournal.hpp"
#include "stores/fixed_path/FixedPathManager.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/FolderEvents.hpp"
#include "tests/support/MessageOf.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;

namespace {

class FixedPathFilesTest : public testing::Test {
protected:
    std::filesystem::path file(const std::string& name) const { return folder_ / ("resources/project/" + name); }

    std::vector<std::string> damagedFiles() const {
        const auto& reporter = dynamic_cast<const project::metadata::DamageReporter&>(*store_);
        std::vector<std::string> names;
        for (const auto& damage : reporter.findDamage())
            names.push_back(toStd(damage.file).lexically_relative(file("")).string());
        return names;
    }

    /// What can be read, without the nodes that cannot. These hinder a copy.
    std::string outlineOfReadable() const {
        bool isAllReadable = true;
        std::string text;
        for (const MetadataPath& each : listPaths({})) {
            std::unique_ptr<MetadataNode> node;
            try {
                node = store_->getNode(each);
            } catch (const MetadataReadFailure&) {
                EXPECT_TRUE(store_->hasNode(each));
                isAllReadable = false;
            }
            for (const PathElement& step : each.getPath())
                text += (&step == &each.getPath().front() ? text.empty() ? "" : " " : "/") +
                        host::toUtf8(step.getLocation());
            text += node ? "(" + host::toUtf8(node->get(u"Value")) + ")" : "";
        }
        const TempFolder other;
        const auto copy = openStore(u"monolithic", other.path());
        const auto copyAll = [&] { project::metadata::copyMetadata(*store_, *copy); };
        if (isAllReadable)
            copyAll();
        else
            EXPECT_THROW(copyAll(), MetadataReadFailure);
        EXPECT_EQ(outline(*copy), isAllReadable ? text : "");
        return text;
    }

    std::vector<MetadataPath> listPaths(const MetadataPath& top) const {
        std::vector<MetadataPath> paths;
        for (const MetadataPath& child : store_->getChildren(top)) {
            paths.push_back(child);
            for (const MetadataPath& below : listPaths(child))
                paths.push_back(below);
        }
        return paths;
    }

    TempFolder folder_;
    std::unique_ptr<MetadataManager> store_ = openStore(u"fixedPath", folder_.path());
};

TEST_F(FixedPathFilesTest, OneFileForEachPath) {
    store_->setNode(path({u"src", u"main.c"}), *node(u"12"));
    EXPECT_EQ(readBytes(file("Project.xml")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Project MetadataType=\"fixedPath\"/>");
    EXPECT_EQ(readBytes(file("t=src.xml")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Path Location=\"src\" Rank=\"a1\" Type=\"t\"/>\n");
    EXPECT_EQ(readBytes(file("t=src/t=main.c.xml")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<Path Location=\"main.c\" Rank=\"a1\" Type=\"t\">\n"
              "    <Node>\n"
              "        <Info Value=\"12\"/>\n"
              "    </Node>\n"
              "</Path>\n");
}

TEST_F(FixedPathFilesTest, AChangeTouchesOnlyItsOwnFile) {
    for (const char16_t* name : {u"a", u"b", u"c", u"d"})
        store_->setNode(path({name, u"x"}), *node(u"1"));
    const auto snapshot = [&] {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.std())) {
            if (entry.is_regular_file())
                files[entry.path().filename().string() + entry.path().parent_path().filename().string()] =
                    readBytes(entry.path());
        }
        return files;
    };
    const auto countChanges = [&](const auto& change) {
        const auto before = snapshot();
        change();
        const auto after = snapshot();
        std::size_t changes = 0;
        for (const auto& [name, content] : after)
            changes += before.count(name) == 0 || before.at(name) != content ? 1U : 0U;
        for (const auto& [name, content] : before)
            changes += after.count(name) == 0 ? 1U : 0U;
        return changes;
    };
    EXPECT_EQ(countChanges([&] { store_->setNode(path({u"b"}), *node(u"2")); }), 1U);
    EXPECT_EQ(countChanges([&] { store_->removeNode(path({u"b"})); }), 1U);
    EXPECT_EQ(countChanges([&] { store_->removePath(path({u"c", u"x"})); }), 1U);
    EXPECT_EQ(countChanges([&] {
                  store_->setPaths({MetadataPath(), path({u"d", u"x"}), path({u"a", u"x"}), path({u"new"}),
                                    path({u"b", u"x"}), path({u"c"})});
              }),
              2U);
    EXPECT_EQ(outline(*store_), "d d/x(1) a a/x(1) new b b/x(1) c");
}

TEST_F(FixedPathFilesTest, OtherFilesAreLeftAlone) {
    store_->setNode(path({u"a", u"b"}), *node(u"1"));
    for (const char* name : {"notes.txt", "uuid-1.xml", "t=a/readme", "t=a/x=y.txt"})
        writeBytes(file(name), "mine");
    EXPECT_EQ(outline(*store_), "a a/b(1)");
    store_->setPaths({});
    for (const char* name : {"notes.txt", "uuid-1.xml", "t=a/readme", "t=a/x=y.txt"})
        EXPECT_EQ(readBytes(file(name)), "mine") << name;
    EXPECT_FALSE(std::filesystem::exists(file("t=a.xml")));
}

TEST_F(FixedPathFilesTest, MarkersAndPathsAreToldApartByWhatIsInTheFile) {
    const MetadataPath likeMarker(std::vector{PathElement(u"uuid-x", u"1")});
    store_->setNode(likeMarker, *node(u"1"));
    const host::Path marker = project::metadata::assignUuid(folder_.path(), u"x=2");
    EXPECT_EQ(project::metadata::getMarkedUuid(marker), u"x=2");
    EXPECT_EQ(project::metadata::getMarkedUuid(toPath(file("uuid-x=1.xml"))), std::nullopt);
    EXPECT_EQ(outline(*store_), "1(1)");
    EXPECT_EQ(damagedFiles(), std::vector<std::string>());
    store_->setPaths({path({u"a"})});
    store_->removePath({});
    EXPECT_FALSE(std::filesystem::exists(file("uuid-x=1.xml")));
    EXPECT_EQ(readBytes(toStd(marker)), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<uuid/>\n");

    // What is damaged belongs to a path, unless the name holds a UUID.
    writeBytes(file("uuid-x=1.xml"), "<Path");
    EXPECT_EQ(project::metadata::getMarkedUuid(toPath(file("uuid-x=1.xml"))), std::nullopt);
    EXPECT_EQ(damagedFiles(), std::vector<std::string>{"uuid-x=1.xml"});
}

TEST_F(FixedPathFilesTest, RemovedFoldersDisappear) {
    store_->setNode(path({u"a", u"b", u"c"}), *node(u"1"));
    store_->removePath(path({u"a"}));
    EXPECT_FALSE(std::filesystem::exists(file("t=a")));
    EXPECT_TRUE(std::filesystem::exists(file("Project.xml")));
}

TEST_F(FixedPathFilesTest, SymbolicLinksOutOfTheFolderAreNotFollowed) {
    const TempFolder other;
    writeBytes(other / "t=x.xml", "mine");
    store_->addPath(path({u"a"}));
    std::filesystem::create_directory_symlink(other.std(), file("t=link"));
    store_->setPaths({});
    EXPECT_EQ(readBytes(other / "t=x.xml"), "mine");
}

TEST_F(FixedPathFilesTest, SiblingsOfEqualRankAreOrderedByTheirElements) {
    store_->addPath(path({u"a"}));
    // As after a merge: both sides appended a path of their own.
    for (const std::string name : {"y", "x"}) {
        writeBytes(file("t=" + name + ".xml"), "<Path Location='" + name + "' Rank='a2' Type='t'/>");
    }
    EXPECT_EQ(outline(*store_), "a x y");
    store_->setPaths({MetadataPath(), path({u"a"}), path({u"x"}), path({u"between"}), path({u"y"})});
    EXPECT_EQ(outline(*store_), "a x between y");
}

TEST_F(FixedPathFilesTest, DamagedFilesAreNamedAndSurvive) {
    store_->setNode(path({u"a", u"x"}), *node(u"1"));
    store_->setNode(path({u"b"}), *node(u"1"));
    for (const char* content :
         {"", "<Path", "<Other/>", "<Path Location='other' Rank='a1' Type='t'/>", "<Path Location='a' Type='t'/>",
          "<Path Location='a' Rank='zz' Type='t'/>", "<Path EscapedLocation='\\q' Rank='a1' Type='t'/>",
          "<Path Location='a' Rank='a1' Type='t'><Node/></Path>"}) {
        writeBytes(file("t=a.xml"), content);
        // A damaged file has no place among the others, but what is below it has.
        EXPECT_EQ(outlineOfReadable(), "b(1) a a/x(1)") << content;
        EXPECT_EQ(damagedFiles(), std::vector<std::string>{"t=a.xml"}) << content;
        for (const auto& change : std::vector<std::function<void()>>{
                 [&] { store_->setNode(path({u"a"}), *node(u"2")); }, [&] { store_->removePath(path({u"a"})); },
                 [&] { store_->setPaths({path({u"b"})}); }}) {
            const std::string message = messageOf<MetadataWriteFailure>(change);
            EXPECT_NE(message.find(file("t=a.xml").string()), std::string::npos) << message;
        }
        store_->setPaths({path({u"b"}), path({u"a", u"x"})});
        EXPECT_EQ(readBytes(file("t=a.xml")), content);
    }
    EXPECT_THROW(store_->getNode(path({u"a"})), MetadataReadFailure);
    // Not even the name of this one tells a path.
    writeBytes(file("t=%zz.xml"), "");
    std::filesystem::remove(file("t=a.xml"));
    EXPECT_FALSE(store_->hasNode(path({u"a"})));
    store_->setPaths({path({u"a", u"x"})});
    EXPECT_EQ(outline(*store_), "a a/x(1)");
    EXPECT_EQ(damagedFiles(), std::vector<std::string>{"t=%zz.xml"});
}

TEST_F(FixedPathFilesTest, MissingFilesAreNamedAndWhatIsBelowIsRead) {
    store_->setNode(path({u"a", u"b", u"c"}), *node(u"1"));
    store_->addPath(path({u"z"}));
    std::filesystem::remove(file("t=a.xml"));
    std::filesystem::remove(file("t=a/t=b.xml"));
    EXPECT_EQ(outline(*store_), "z a a/b a/b/c(1)");
    EXPECT_TRUE(store_->hasPath(path({u"a"})));
    EXPECT_EQ(damagedFiles(), (std::vector<std::string>{"t=a/t=b.xml", "t=a.xml"}));
    store_->addPath(path({u"a", u"b"}));
    EXPECT_EQ(damagedFiles(), std::vector<std::string>());
    EXPECT_EQ(outline(*store_), "z a a/b a/b/c(1)");
}

TEST_F(FixedPathFilesTest, WhatAReadingKnowsHidesNoDamage) {
    for (const char16_t* name : {u"a", u"b", u"c"}) {
        for (const char16_t* below : {u"x", u"y", u"z"})
            store_->setNode(path({name, below}), *node(u"1"));
    }
    writeBytes(file("t=a/t=x.xml"), "<Path");
    std::filesystem::rename(file("t=b/t=y.xml"), file("t=b/t=other.xml"));
    std::filesystem::remove(file("t=c.xml"));
    writeBytes(file("t=c/t=z.xml"), "<Path Location='z' Rank='a3' Type='t'><!-- c --></Path>");
    writeBytes(file("t=b/t=%zz.xml"), "");
    const auto expected = damagedFiles();
    EXPECT_EQ(expected,
              (std::vector<std::string>{"t=a/t=x.xml", "t=b/t=%zz.xml", "t=b/t=other.xml", "t=c/t=z.xml", "t=c.xml"}));
    const auto read = outlineOfReadable();
    for (const bool walksFirst : {true, false}) {
        store_ = openStore(u"fixedPath", folder_.path());
        const project::metadata::RepeatableRead reading(*store_);
        if (walksFirst) {
            EXPECT_EQ(outlineOfReadable(), read);
        }
        EXPECT_EQ(damagedFiles(), expected);
        EXPECT_EQ(outlineOfReadable(), read);
        EXPECT_EQ(damagedFiles(), expected);
    }
}

TEST_F(FixedPathFilesTest, WhatASubscriberReadsDuringAReadingHidesNoChange) {
    std::string before;
    store_ = std::make_unique<stores::fixed_path::FixedPathManager>(toPath(folder_ / "resources/project"),
                                                                    [&](project::metadata::FileJob job) {
                                                                        before = outline(*store_);
                                                                        job.run();
                                                                    });
    store_->setNode(path({u"a", u"b"}), *node(u"1"));
    const project::metadata::RepeatableRead reading(*store_);
    store_->setNodes({{path({u"a", u"b"}), node(u"2")}, {path({u"a", u"c"}), node(u"2")}});
    EXPECT_EQ(before, "a a/b(1)");
    EXPECT_EQ(outline(*store_), "a a/b(2) a/c(2)");
}

TEST_F(FixedPathFilesTest, ACopyOpensEachFileOnce) {
    // More than a store keeps of what nobody waits for, by the sizes of the files. Blanks are read fast.
    constexpr std::size_t count = 9'500;
    store_->setNode(path({u"1000"}), *node(u"1"));
    std::string bytes = readBytes(file("t=1000.xml"));
    bytes.insert(bytes.rfind('<'), 16'000 - bytes.size(), ' ');
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = std::to_string(1000 + i);
        std::string other = bytes;
        writeBytes(file("t=" + name + ".xml"), other.replace(other.find("1000"), 4, name));
    }
    store_ = openStore(u"fixedPath", folder_.path());
    const FolderEvents opened(file(""), IN_OPEN);
    const TempFolder other;
    {
        const project::metadata::RepeatableRead reading(*store_);
        project::metadata::copyMetadata(*store_, *openStore(u"monolithic", other.path()));
    }
    EXPECT_EQ(opened.count(".xml"), count + 1);  // with the core file
    EXPECT_EQ(openStore(u"monolithic", other.path())->getChildren({}).size(), count);
}

TEST_F(FixedPathFilesTest, ADamagedCoreFileHidesNothingElse) {
    store_->setNode(path({u"a"}), *node(u"1"));
    writeBytes(file("Project.xml"), "<<<<<<< ours");
    const auto store = project::metadata::getMetadataManagerFor(folder_.path());
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(outline(*store), "a(1)");
    EXPECT_EQ(damagedFiles(), std::vector<std::string>{"Project.xml"});
    EXPECT_THROW(store->setNode(MetadataPath(), *node(u"1")), MetadataWriteFailure);
    store->setNode(path({u"b"}), *node(u"2"));
    EXPECT_EQ(readBytes(file("Project.xml")), "<<<<<<< ours");
}

TEST_F(FixedPathFilesTest, WhatNobodyHasReadIsStillUnknownWithANewRank) {
    for (const char16_t* name : {u"a", u"b", u"c"})
        store_->setNode(path({name}), *node(u"1"));
    const auto other = openStore(u"fixedPath", folder_.path());
    other->setNode(path({u"a"}), *node(u"2"));
    store_->setPaths({path({}), path({u"b"}), path({u"c"}), path({u"a"})});
    EXPECT_THROW(store_->setNode(path({u"a"}), *node(u"3")), MetadataWriteFailure);
    EXPECT_EQ(store_->getNode(path({u"a"}))->get(u"Value"), u"2");
    store_->setNode(path({u"a"}), *node(u"3"));
    EXPECT_EQ(outline(*store_), "b(1) c(1) a(3)");
}

TEST_F(FixedPathFilesTest, PermissionsAndFurtherNamesAreNoChangeOfWhatWasRead) {
    const std::vector<MetadataPath> read{path({u"a", u"read"}), path({u"read"})};
    const std::vector<MetadataPath> unread{path({u"a", u"unread"}), path({u"unread"})};
    for (const auto& paths : {read, unread}) {
        for (const MetadataPath& each : paths)
            store_->setNode(each, *node(u"1"));
    }
    const auto other = openStore(u"fixedPath", folder_.path());
    for (const MetadataPath& each : read)
        other->getNode(each);
    for (const std::string name : {"t=a/t=read.xml", "t=a/t=unread.xml", "t=read.xml", "t=unread.xml"}) {
        std::filesystem::permissions(file(name), std::filesystem::perms(0640));
        std::filesystem::create_hard_link(file(name), folder_ / file(name).filename().string());
        std::filesystem::remove(folder_ / file(name).filename().string());
    }
    for (const MetadataPath& each : read)
        other->setNode(each, *node(u"2"));
    // Of what was not, it cannot be told whether it is what it was.
    for (const MetadataPath& each : unread) {
        EXPECT_THROW(other->setNode(each, *node(u"2")), MetadataWriteFailure);
        other->getNode(each);
        other->setNode(each, *node(u"2"));
    }
    EXPECT_EQ(outline(*other), "a a/read(2) a/unread(2) read(2) unread(2)");
}

TEST_F(FixedPathFilesTest, WhatOthersPutInPlaceWithOldTimesIsNotOverwrittenUnseen) {
    using std::filesystem::rename;
    using Folder = std::filesystem::path;
    const std::vector<std::pair<std::string, std::function<void(const Folder&)>>> ways{
        {"a file moved", [](const Folder& at) { rename(at / "t=b/t=x.xml", at / "t=a/t=x.xml"); }},
        {"a file restored",
         [](const Folder& at) {
             const auto time = std::filesystem::last_write_time(at / "t=b/t=x.xml");
             writeBytes(at / "t=a/t=x.xml", readBytes(at / "t=b/t=x.xml"));
             std::filesystem::last_write_time(at / "t=a/t=x.xml", time);
         }},
        {"a folder moved",
         [](const Folder& at) {
             rename(at / "t=a", at / "away");
             rename(at / "t=b", at / "t=a");
         }},
        {"a project moved",
         [](const Folder& at) {
             rename(at, at.parent_path() / "away");
             rename(at.parent_path() / "other", at);
         }},
    };
    for (const auto& [name, putInPlace] : ways) {
        for (const bool isRead : {true, false}) {
            const TempFolder folder;
            const auto at = folder / "resources/project";
            for (const char16_t* value : {u"2", u"1"}) {
                const auto writer = openStore(u"fixedPath", folder.path());
                writer->setNodes({{path({u"a", u"x"}), node(value)}, {path({u"b", u"x"}), node(u"2")}});
                if (value == std::u16string(u"2"))
                    rename(at, at.parent_path() / "other");
            }
            const auto store = openStore(u"fixedPath", folder.path());
            if (isRead) {
                store->getNode(path({u"a", u"x"}));
                store->getNode(path({u"b", u"x"}));
            }
            putInPlace(at);
            EXPECT_THROW(store->setNode(path({u"a", u"x"}), *node(u"3")), MetadataWriteFailure) << name << isRead;
            EXPECT_EQ(store->getNode(path({u"a", u"x"}))->get(u"Value"), u"2") << name;
            store->setNode(path({u"a", u"x"}), *node(u"3"));
            EXPECT_EQ(store->getNode(path({u"a", u"x"}))->get(u"Value"), u"3") << name;
        }
    }
}

TEST_F(FixedPathFilesTest, AMetadataFolderMayBeASymbolicLink) {
    const TempFolder elsewhere;
    std::filesystem::create_directory(folder_ / "resources");
    std::filesystem::create_directory_symlink(elsewhere.std(), folder_ / "resources/project");
    const auto other = openStore(u"fixedPath", folder_.path());
    store_ = openStore(u"fixedPath", folder_.path());
    store_->addPath(path({u"1"}));
    for (const char16_t* name : {u"2", u"3", u"4"})
        other->addPath(path({name}));
    store_->addPath(path({u"5"}));
    EXPECT_EQ(outline(*store_), "1 2 3 4 5");
}

TEST_F(FixedPathFilesTest, NothingIsChangedThroughASymbolicLink) {
    store_->setNode(path({u"a", u"b"}), *node(u"1"));
    const TempFolder elsewhere;
    std::filesystem::rename(file("t=a"), elsewhere / "a");
    std::filesystem::create_directory_symlink(elsewhere / "a", file("t=a"));
    EXPECT_EQ(damagedFiles(), std::vector<std::string>{"t=a"});
    const std::string before = readBytes(elsewhere / "a/t=b.xml");
    EXPECT_THROW(store_->setNode(path({u"a", u"b"}), *node(u"2")), MetadataWriteFailure);
    EXPECT_THROW(store_->addPath(path({u"a", u"c"})), MetadataWriteFailure);
    EXPECT_THROW(store_->removePath(path({u"a"})), MetadataWriteFailure);
    EXPECT_EQ(readBytes(elsewhere / "a/t=b.xml"), before);
    EXPECT_FALSE(std::filesystem::exists(elsewhere / "a/t=c.xml"));
}

TEST_F(FixedPathFilesTest, OnlyRegularFilesAreRead) {
    store_->setNode(path({u"a"}), *node(u"1"));
    store_->setNode(path({u"b"}), *node(u"1"));
    const auto a = file("t=a.xml");
    const std::vector<std::function<void()>> makers{
        [&] { ASSERT_EQ(mkfifo(a.c_str(), 0666), 0); },
        [&] { std::filesystem::create_symlink("/dev/zero", a); },
        [&] { std::filesystem::create_symlink(file("t=b.xml"), a); },
        [&] { std::filesystem::create_directory(a); },
        // What a node refuses.
        [&] {
            writeBytes(a, "<Path Location='a' Rank='a1' Type='t'><Node><Info \xf0\x90\x80\x80='1'/></Node></Path>");
        },
        [&] {
            writeBytes(a, "<Path Location='a' Rank='a1' Type='t'><Node><Info Value='\xf0\x9f\x90\x80'/></Node></Path>");
        },
    };
    for (const auto& make : makers) {
        std::filesystem::remove(a);
        make();
        const auto store = project::metadata::getMetadataManagerFor(folder_.path());
        ASSERT_NE(store, nullptr);
        EXPECT_EQ(outlineOfReadable(), "b(1) a");
        EXPECT_EQ(damagedFiles(), std::vector<std::string>{"t=a.xml"});
        const std::string message = messageOf<MetadataReadFailure>([&] { store->getNode(path({u"a"})); });
        EXPECT_NE(message.find(a.string()), std::string::npos) << message;
        EXPECT_THROW(store->setNode(path({u"a"}), *node(u"2")), MetadataWriteFailure);
    }
}

TEST_F(FixedPathFilesTest, ADamagedJournalHindersOnlyChanges) {
    store_->setNode(path({u"a"}), *node(u"1"));
    writeBytes(file(".pending/journal"), "no journal");
    const auto store = project::metadata::getMetadataManagerFor(folder_.path());
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(outline(*store), "a(1)");
    EXPECT_EQ(damagedFiles(), std::vector<std::string>{".pending/journal"});
    const std::string message = messageOf<MetadataWriteFailure>([&] { store->setNode(path({u"a"}), *node(u"2")); });
    EXPECT_NE(message.find(".pending/journal"), std::string::npos) << message;
    const auto folder = toPath(file("").parent_path());
    const auto place = store_support::setAsideDamagedChange(folder);
    ASSERT_TRUE(place);
    EXPECT_EQ(readBytes(toStd(*place) / "journal"), "no journal");
    EXPECT_FALSE(store_support::setAsideDamagedChange(folder));
    store->setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(outline(*store_), "a(2)");
    EXPECT_EQ(damagedFiles(), std::vector<std::string>());
}

TEST_F(FixedPathFilesTest, PathsTooLongForTheFileSystemAreRefused) {
    store_->addPath(path({u"a"}));
    const auto deep = path(std::vector<std::u16string>(40, std::u16string(150, u'x')));
    EXPECT_THROW(store_->addPath(deep), project::metadata::MetadataWriteFailure);
    EXPECT_FALSE(store_->hasPath(deep));
    EXPECT_EQ(outline(*store_), "a");
}

}  // namespace
