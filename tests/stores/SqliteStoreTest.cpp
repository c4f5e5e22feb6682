// What is particular to the store "sqlite": its file, and who else may have a hand in it.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <set>

#include "project/metadata/FileJob.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "stores/sqlite/SqliteManager.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/UnprivilegedUser.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;

namespace {

class SqliteStoreTest : public testing::Test {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(u"sqlite", folder_.path()); }

    std::filesystem::path metadata() const { return folder_ / "resources/project"; }
    std::filesystem::path database() const { return metadata() / "metadata.db"; }

    /// Runs `sql` on the database as another program would. @return the first column of the last row
    std::string run(const std::string& sql) const {
        const auto connection = stores::sqlite::openConnection(database().string(), SQLITE_OPEN_READWRITE);
        std::string value;
        const auto keep = [](void* into, int /*count*/, char** values, char** /*names*/) {
            *static_cast<std::string*>(into) = values[0] ? values[0] : "NULL";
            return 0;
        };
        if (sqlite3_exec(connection.get(), sql.c_str(), keep, &value, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(connection.get()));
        return value;
    }

    std::set<std::string> listFiles() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(metadata()))
            names.insert(entry.path().filename());
        return names;
    }

    const std::set<std::string> filesAtRest_ = {"Project.xml", "metadata.db"};
    TempFolder folder_;
};

TEST_F(SqliteStoreTest, RefusesWhatIsNoDatabaseOfItsVersionAndLeavesItAlone) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const std::string good = readBytes(database());
    const auto changed = [&](const char* sql) {
        writeBytes(database(), good);
        run(sql);
        return readBytes(database());
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {changed("PRAGMA user_version = 2"), "version 2"},
        {changed("PRAGMA application_id = 7"), "another application"},
        {changed("ALTER TABLE path DROP COLUMN node"), "no column named node"},
        {"this is text, and long enough to be taken for the header of a database of SQLite if nobody looks closely",
         "file is not a database"},
        {"", "another application"},
    };
    for (const auto& [content, reason] : cases) {
        writeBytes(database(), content);
        const std::string message = messageOf<MetadataReadFailure>([&] { open(); });
        EXPECT_NE(message.find(reason), std::string::npos) << message;
        EXPECT_NE(message.find(database().string()), std::string::npos) << message;
        EXPECT_EQ(readBytes(database()), content);
        EXPECT_EQ(listFiles(), filesAtRest_);
    }
    std::filesystem::remove(database());
    EXPECT_NE(messageOf<MetadataReadFailure>([&] { open(); }).find("missing"), std::string::npos);
}

TEST_F(SqliteStoreTest, ADatabaseWithoutACoreFileIsNeitherReadNorOverwritten) {
    open()->setNode(path({u"a"}), *node(u"1"));
    std::filesystem::remove(metadata() / "Project.xml");
    const std::string before = readBytes(database());
    const auto store = open();
    EXPECT_EQ(outline(*store), "");
    const std::string message = messageOf<MetadataWriteFailure>([&] { store->addPath(path({u"b"})); });
    EXPECT_NE(message.find(database().string()), std::string::npos) << message;
    EXPECT_EQ(readBytes(database()), before);
    EXPECT_EQ(listFiles(), std::set<std::string>{"metadata.db"});
}

TEST_F(SqliteStoreTest, LogIsThereOnlyWhileSomebodyWhoWritesIs) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto reader = open();
    const auto folderTime = std::filesystem::last_write_time(metadata());
    EXPECT_EQ(outline(*reader), "a(1)");
    open()->setNode(path({u"a"}), *node(u"1"));
    EXPECT_EQ(std::filesystem::last_write_time(metadata()), folderTime);
    {
        const auto writer = open();
        writer->setNode(path({u"a"}), *node(u"2"));
        EXPECT_EQ(run("PRAGMA journal_mode"), "wal");
        EXPECT_EQ(outline(*open()), "a(2)");
        EXPECT_EQ(listFiles(),
                  (std::set<std::string>{"Project.xml", "metadata.db", "metadata.db-shm", "metadata.db-wal"}));
    }
    EXPECT_EQ(outline(*reader), "a(2)");
    EXPECT_EQ(listFiles(), filesAtRest_);
}

TEST_F(SqliteStoreTest, ReadsWithoutPermissionToWrite) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const std::string atRest = readBytes(database());
    run("PRAGMA journal_mode = WAL");  // as in a copy that was taken while a store was open
    const std::string withLog = readBytes(database());
    ASSERT_NE(withLog, atRest);
    // The plug-ins may lie where only the superuser gets.
    EXPECT_EQ(outline(*open()), "a(1)");
    for (const std::string& content : {atRest, withLog}) {
        writeBytes(database(), content);
        std::filesystem::permissions(database(), std::filesystem::perms(0444));
        std::filesystem::permissions(metadata(), std::filesystem::perms(0555));
        const UnprivilegedUser user;
        EXPECT_EQ(outline(*open()), "a(1)");
        EXPECT_EQ(readBytes(database()), content);
        EXPECT_EQ(listFiles(), filesAtRest_);
    }
}

TEST_F(SqliteStoreTest, WritesOnlyTheRowsThatChange) {
    const auto store = open();
    std::vector<MetadataPath> paths(1);
    for (char16_t name = u'a'; name <= u'z'; ++name)
        paths.push_back(path({std::u16string(1, name)}));
    store->setPaths(paths);
    for (const MetadataPath& path : paths)
        store->setNode(path, *node(u"1"));
    // As a trigger sees it: each row that is written.
    run("CREATE TABLE written (id); CREATE TRIGGER note AFTER UPDATE ON path BEGIN INSERT INTO written VALUES (new.id);"
        " END; CREATE TRIGGER note_new AFTER INSERT ON path BEGIN INSERT INTO written VALUES (new.id); END");
    const auto countWritten = [&] {
        return run(
            "SELECT count(*) FROM written; DELETE FROM written; "
            "SELECT changes()");
    };
    store->setNode(path({u"m"}), *node(u"2"));
    EXPECT_EQ(countWritten(), "1");
    // One path moves to the front, one to the end, and one between two others; others keep their places.
    std::rotate(paths.begin() + 1, paths.begin() + 13, paths.begin() + 14);
    std::rotate(paths.begin() + 5, paths.begin() + 6, paths.end());
    paths.insert(paths.begin() + 9, path({u"new"}));
    store->setPaths(paths);
    EXPECT_EQ(countWritten(), "3");
    // Until there is no room left between two of them.
    for (int i = 0; i < 40; ++i) {
        std::swap(paths[2], paths[i % 2 == 0 ? 3 : 20]);
        std::rotate(paths.begin() + 3, paths.begin() + 20, paths.begin() + 21);
        store->setPaths(paths);
        const auto found = open()->getChildren(MetadataPath());
        ASSERT_EQ(found, std::vector<MetadataPath>(paths.begin() + 1, paths.end()));
    }
}

TEST_F(SqliteStoreTest, WritesWithoutALogWhereThereCanBeNone) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto store = open();
    {
        // Less than the shared memory of a log takes.
        const FileSizeLimit limit(30000);
        store->setNode(path({u"a"}), *node(u"2"));
        EXPECT_EQ(outline(*open()), "a(2)");
    }
    EXPECT_EQ(listFiles(), filesAtRest_);
    EXPECT_EQ(run("PRAGMA journal_mode"), "delete");
}

TEST_F(SqliteStoreTest, LockThatIsNotGotIsNamed) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto runJob = [](project::metadata::FileJob job) { job.run(); };
    stores::sqlite::SqliteManager store(toPath(metadata()), runJob, std::chrono::milliseconds(50));
    {
        const auto holder = stores::sqlite::openConnection(database().string(), SQLITE_OPEN_READWRITE);
        stores::sqlite::execute(*holder, "BEGIN EXCLUSIVE");
        const std::string message = messageOf<MetadataReadFailure>([&] { store.getNode(path({u"a"})); });
        EXPECT_NE(message.find("another program has held it"), std::string::npos) << message;
    }
    store.setNode(path({u"a"}), *node(u"2"));
    const auto holder = stores::sqlite::openConnection(database().string(), SQLITE_OPEN_READWRITE);
    stores::sqlite::execute(*holder, "BEGIN IMMEDIATE");
    EXPECT_EQ(store.getNode(path({u"a"}))->get(u"Value"), u"2");
    const std::string message = messageOf<MetadataWriteFailure>([&] { store.setNode(path({u"a"}), *node(u"3")); });
    EXPECT_NE(message.find("another program has held it"), std::string::npos) << message;
    EXPECT_NE(message.find(database().string()), std::string::npos) << message;
}

TEST_F(SqliteStoreTest, AReplacedFileIsNoticedAndNotOverwrittenUnseen) {
    open()->setNode(path({u"a"}), *node(u"old"));
    const std::string old = readBytes(database());
    open()->setNode(path({u"a"}), *node(u"new"));
    const auto store = open();
    store->setNode(path({u"a"}), *node(u"newer"));
    writeBytes(metadata() / "other", old);
    std::filesystem::rename(metadata() / "other", database());
    EXPECT_THROW(store->setNode(path({u"a"}), *node(u"mine")), MetadataWriteFailure);
    EXPECT_EQ(outline(*store), "a(old)");
    store->setNode(path({u"a"}), *node(u"mine"));
    EXPECT_EQ(outline(*open()), "a(mine)");
}

TEST_F(SqliteStoreTest, TellsItsOwnChangesFromThoseOfOthers) {
    const auto store = open();
    const auto other = open();
    store->setNode(path({u"a"}), *node(u"1"));
    other->addPath(path({u"b"}));
    for (const char16_t* value : {u"2", u"3"}) {
        store->setNode(path({u"a"}), *node(value));
        store->setNode(path({u"c"}), *node(value));
    }
    other->setNode(path({u"d"}), *node(u"1"));
    store->setNode(path({u"a"}), *node(u"4"));
    store->setNode(path({u"c"}), *node(u"4"));
    EXPECT_THROW(other->setNode(path({u"c"}), *node(u"5")), MetadataWriteFailure);
    EXPECT_THROW(store->setPaths({}), MetadataWriteFailure);
    EXPECT_TRUE(store->hasNode(path({u"d"})));
    EXPECT_EQ(store->getChildren(MetadataPath()).size(), 4U);  // so it knows of the branch b
    store->setPaths({});
    EXPECT_EQ(outline(*other), "");
}

TEST_F(SqliteStoreTest, ADamagedPageIsAnErrorWhereverItIs) {
    // One node in the page of its row, one in pages of its own.
    for (const std::size_t size : {10U, 20000U})
        open()->setNode(path({number(static_cast<int>(size))}), *node(std::u16string(size, u'x')));
    const std::string good = readBytes(database());
    constexpr std::size_t pageSize = 4096;
    std::size_t errors = 0;
    for (std::size_t page = pageSize; page < good.size(); page += pageSize) {
        writeBytes(database(), std::string(good).replace(page, 8, 8, '\xFF'));
        try {
            read(*open());
        } catch (const MetadataReadFailure&) {
            ++errors;
        }
    }
    EXPECT_GT(errors, 4U);
}

TEST_F(SqliteStoreTest, DamageIsNamedAndStays) {
    const auto store = open();
    for (const char16_t* name : {u"a", u"b", u"c", u"d"})
        store->setNode(path({name, u"x"}), *node(u"1"));
    EXPECT_TRUE(dynamic_cast<const project::metadata::DamageReporter&>(*store).findDamage().empty());
    run("UPDATE path SET node = substr(node, 1, 7) WHERE parent = (SELECT id FROM path WHERE location = 'a')");
    run("UPDATE path SET parent = 99 WHERE location = 'b'");
    run("UPDATE path SET location = CAST('x' AS BLOB) WHERE parent = (SELECT id FROM path WHERE location = 'c')");
    run("UPDATE path SET parent = id WHERE location = 'd'");

    std::string all;
    for (const auto& damage : dynamic_cast<const project::metadata::DamageReporter&>(*store).findDamage()) {
        EXPECT_EQ(damage.file, toPath(database()));
        all += host::toUtf8(damage.problem) + "\n";
    }
    for (const char* problem : {"\"t:a|t:x\" (row 2) has a node", "\"t:b|t:x\" (row 4) has no way",
                                "\"t:c|t:?\" (row 6) has a type or a location", "(row 8) has no way"})
        EXPECT_NE(all.find(problem), std::string::npos) << problem << " is not in:\n" << all;

    const std::string message = messageOf<MetadataReadFailure>([&] { store->getNode(path({u"a", u"x"})); });
    EXPECT_NE(message.find("t:a|t:x"), std::string::npos) << message;
    EXPECT_THROW(store->setNode(path({u"a", u"x"}), *node(u"2")), MetadataWriteFailure);
    EXPECT_THROW(store->removePath(path({u"a"})), MetadataWriteFailure);
    EXPECT_THROW(store->removePath(path({u"c"})), MetadataReadFailure);
    EXPECT_ANY_THROW(store->removePath(MetadataPath()));
    EXPECT_ANY_THROW(store->setPaths({}));
    EXPECT_EQ(run("SELECT count(*) FROM path"), "9");
    EXPECT_EQ(run("SELECT length(node) FROM path WHERE id = 2"), "7");
}

}  // namespace
