// Scans after a scan that found nothing to do: what they need not read again, and what they must.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>

#include "operations/Scan.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "tests/stores/CollectedDamage.hpp"
#include "tests/support/FolderEvents.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;

pm::MetadataPath inSource(const char16_t* type, const char16_t* name) {
    return pm::MetadataPath({{u"Folder", u"src"}, {type, name}});
}

/// A project with the files "src/a.c" and "src/b.c", of one byte each, and a path in "src" that stands for no file.
class ScanAgainTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
        test::writeBytes(root() / "src/a.c", "1");
        test::writeBytes(root() / "src/b.c", "1");
        const auto store = pm::getNamedFactory(u"fixedPath")->createManager(test::toPath(root()));
        store->setNode(inSource(u"Label", u"x"), pm::MetadataNodeSpecification());
        scan();
        expectNothingToDo();
    }

    fs::path root() const { return folder_ / "project"; }
    fs::path nodes() const { return root() / "resources/project/Folder=src"; }

    operations::ScanResult scan() const {
        operations::Observer observer;
        return operations::scanInto(test::toPath(root()), request_, observer);
    }

    /// Scans, and says how many files with nodes of what lies in "src" that took.
    std::size_t countRead() const {
        const test::FolderEvents opened(nodes(), IN_OPEN);
        EXPECT_EQ(scan().files, 2U + extraFiles_);
        return opened.count(".xml");
    }

    /// Nothing is to be done now, and once that is seen nothing is read.
    void expectNothingToDo() const {
        EXPECT_GE(countRead(), 3U);
        EXPECT_EQ(countRead(), 0U);
    }

    std::u16string get(const pm::MetadataPath& path, const std::u16string& key) const {
        const auto node = pm::getMetadataManagerFor(test::toPath(root()))->getNode(path);
        return node ? node->get(key) : u"no node";
    }

    /// Overwrites `old`, if it stands in the file `name` of a node, with `changed`, of the same length.
    void overwrite(const std::string& name, const std::string& old, const std::string& changed) const {
        const fs::path file = nodes() / name;
        const auto time = fs::last_write_time(file);
        const std::size_t place = test::readBytes(file).find(old);
        if (place == std::string::npos)
            return;
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(place)) << changed << std::flush;
        fs::last_write_time(file, time);
    }

    test::TempFolder folder_{test::memoryFolder()};
    operations::ScanRequest request_;
    std::size_t extraFiles_ = 0;
};

TEST_F(ScanAgainTest, WhateverHasChangedIsSeen) {
    const pm::MetadataPath a = inSource(u"File", u"a.c");
    const pm::MetadataPath b = inSource(u"File", u"b.c");
    const pm::MetadataPath gone = inSource(u"File", u"gone");
    static constexpr const char* missing = "a node for no file";  // which is looked for again and again
    struct Change {
        const char* what;
        std::function<void()> make;
        std::function<bool()> isSettled;
    };
    const std::vector<Change> changes{
        {"a node, in place, with its size and time", [&] { overwrite("File=a.c.xml", "\"file\"", "\"fool\""); },
         [&] { return get(a, u"Kind") == u"file"; }},
        {"a node taken away", [&] { fs::remove(nodes() / "File=a.c.xml"); }, [&] { return get(a, u"Size") == u"1"; }},
        {missing,
         [&] { pm::getMetadataManagerFor(test::toPath(root()))->setNode(gone, pm::MetadataNodeSpecification()); },
         [&] { return get(gone, u"Missing") == u"true"; }},
        {"that file", [&] { test::writeBytes(root() / "src/gone", "12"), extraFiles_ = 1; },
         [&] { return get(gone, u"Missing").empty() && get(gone, u"Size") == u"2"; }},
        {"a longer file", [&] { test::writeBytes(root() / "src/a.c", "123"); },
         [&] { return get(a, u"Size") == u"3"; }},
        {"a file that is left out",
         [&] {
             request_.isExcluded = [](const std::u16string& name, const auto& /*place*/) { return name == u"b.c"; };
             test::writeBytes(root() / "src/b.c", "123");
             extraFiles_ = 0;
         },
         [&] { return get(b, u"Size") == u"1"; }},
        {"the same, not left out any more",
         [&] {
             request_.isExcluded = nullptr;
             extraFiles_ = 1;
         },
         [&] { return get(b, u"Size") == u"3"; }},
        {"wanted times", [&] { request_.wish.withTimes = true; }, [&] { return !get(a, u"ModificationTime").empty(); }},
        {"a touched file", [&] { fs::last_write_time(root() / "src/a.c", fs::file_time_type::clock::now()); },
         [&] { return get(a, u"ModificationTime").substr(0, 2) == u"20"; }},
        {"unwanted times", [&] { request_.wish.withTimes = false; },
         [&] { return get(a, u"ModificationTime").empty(); }},
        {"a link in place of a file",
         [&] {
             fs::remove(root() / "src/a.c");
             fs::create_symlink("b.c", root() / "src/a.c");
         },
         [&] { return get(a, u"Kind") == u"symlink"; }},
        {"a folder in place of a file",
         [&] {
             fs::remove(root() / "src/a.c");
             test::writeBytes(root() / "src/a.c/d", "1");
         },
         [&] { return get(a, u"Kind") == u"no node" && get(inSource(u"Folder", u"a.c"), u"Kind") == u"folder"; }},
    };
    for (const Change& change : changes) {
        SCOPED_TRACE(change.what);
        change.make();
        scan();
        EXPECT_TRUE(change.isSettled());
        if (change.what == missing)
            continue;
        scan();
        EXPECT_EQ(countRead(), 0U);
    }
}

TEST_F(ScanAgainTest, WhatIsMissingOrDamagedIsToldAgainAndAgain) {
    fs::remove(root() / "src/b.c");
    pm::MetadataNodeSpecification noted;
    noted.put(u"Note", u"mine");
    pm::getMetadataManagerFor(test::toPath(root()))->setNode(inSource(u"File", u"b.c"), noted);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(scan().change.missing.size(), 1U);
    test::writeBytes(root() / "src/b.c", "1");
    scan();
    expectNothingToDo();

    const fs::path label = nodes() / "Label=x.xml";
    const std::string bytes = test::readBytes(label);
    const test::CollectedDamage told;
    const auto expectTold = [&] {
        for (int i = 0; i < 3; ++i) {
            scan();
            EXPECT_EQ(told.take().size(), 1U);
        }
    };
    test::writeBytes(label, bytes + "<!-- mine -->");
    expectTold();
    test::writeBytes(label, bytes);
    test::writeBytes(nodes() / "Label=%78.xml", bytes);  // no path has a file of this name
    expectTold();
}

/// The clock of a file system may tick every few milliseconds only, and what happens within one tick has one time.
TEST_F(ScanAgainTest, WhatHasChangedSinceTheStoreWasOpenedHasNoFingerprint) {
    const auto read = [](const pm::MetadataManager& store) {
        const pm::RepeatableRead reading(store);
        const pm::MetadataPath source(std::vector<pm::PathElement>{{u"Folder", u"src"}});
        store.getChildren(source);
        return dynamic_cast<const pm::PathFileLister&>(store).getFingerprintOfRead(source);
    };
    const auto store = pm::getMetadataManagerFor(test::toPath(root()));
    EXPECT_NE(read(*store), "");
    overwrite("File=a.c.xml", "\"1\"", "\"9\"");
    EXPECT_EQ(read(*store), "");
    EXPECT_NE(read(*pm::getMetadataManagerFor(test::toPath(root()))), "");
}

TEST_F(ScanAgainTest, TheRecordsOfProjectsThatAreGoneGo) {
    const fs::path records = folder_ / "state/project-metadata/scans";
    const auto list = [&] {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(records))
            names.insert(entry.path().filename());
        return names;
    };
    std::set<std::string> kept = list();
    const auto addProject = [&](const std::string& name) {
        const std::set<std::string> before = list();
        pm::getNamedFactory(u"fixedPath")
            ->createManager(test::toPath(folder_ / name))
            ->addPath(inSource(u"File", u"x"));
        operations::Observer observer;
        operations::scanInto(test::toPath(folder_ / name), request_, observer);
        for (const std::string& record : list()) {
            if (before.count(record) == 0)
                return record;
        }
        return std::string();
    };
    addProject("gone");
    kept.insert(addProject("without metadata"));
    kept.insert(addProject("elsewhere"));
    // As it is when the disk with the project is not there: the folder that is left is on another one.
    const fs::path elsewhere = records / addProject("unmounted");
    std::string bytes = test::readBytes(elsewhere);
    const std::string place = folder_ / "unmounted";
    bytes.at(bytes.rfind(place) + place.size()) ^= 1;
    test::writeBytes(elsewhere, bytes);
    kept.insert(elsewhere.filename());
    // Whatever else lies there is not ours: one that does not say of itself what its name does, too.
    fs::copy(elsewhere, records / "0123456789abcdef");
    test::writeBytes(records / "notes", "mine");
    kept.insert({"0123456789abcdef", "notes"});

    fs::remove_all(folder_ / "gone");
    fs::remove_all(folder_ / "unmounted");
    fs::remove_all(folder_ / "without metadata/resources");
    test::writeBytes(root() / "src/c.c", "1");
    scan();
    EXPECT_EQ(list(), kept);
}

}  // namespace
