// What is particular to the store "sqlite": its file, and who else may have a hand in it.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "host/Interruption.hpp"
#include "project/metadata/FileJob.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/sqlite/SqliteManager.hpp"
#include "tests/stores/CollectedDamage.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/ChildProcess.hpp"
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

    /// Runs `sql` while the database does not keep its indices up to date.
    void runWithoutIndices(const std::string& sql) const {
        const std::string texts = "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = replace(sql, ";
        const std::string unique = "'UNIQUE (parent, type, location)'";
        const std::string none = "'CHECK (1) --                   '";
        run(texts + unique + ", " + none +
            "); CREATE TABLE hidden AS SELECT * FROM sqlite_schema WHERE type = 'index'; " +
            "DELETE FROM sqlite_schema WHERE type = 'index'");
        run(sql);
        run("PRAGMA writable_schema = ON; INSERT INTO sqlite_schema SELECT * FROM hidden; DROP TABLE hidden");
        run(texts + none + ", " + unique + ")");
    }

    std::string damage() const {
        std::string all;
        const auto store = open();
        for (const auto& damage : dynamic_cast<const project::metadata::DamageReporter&>(*store).findDamage())
            all += host::toUtf8(damage.file.fileName().text()) + ": " + host::toUtf8(damage.problem) + "\n";
        return all;
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
        {changed("ALTER TABLE path DROP COLUMN node"), "the table \"path\" in it is not as a store makes it"},
        {changed("DROP INDEX path_order"), "the index \"path_order\" in it is missing"},
        {changed("DROP TABLE state"), "the table \"state\" in it is missing"},
        {changed("CREATE TABLE other (x)"), "the table \"other\" in it is none that a store makes"},
        {changed("CREATE INDEX other ON path (node)"), "the index \"other\" in it is none"},
        {changed("CREATE VIEW other AS SELECT 1"), "the view \"other\" in it is none"},
        {changed("CREATE TRIGGER other AFTER UPDATE ON path BEGIN DELETE FROM path; END"), "the trigger \"other\""},
        {changed("PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = replace(sql, '    UNIQUE (parent, type, "
                 "location)', '    CHECK (parent <> 9)') WHERE name = 'path'; DELETE FROM sqlite_schema WHERE sql IS "
                 "NULL"),
         "the table \"path\" in it is not as a store makes it"},
        {"this is text, and long enough to be taken for the header of a database of SQLite if nobody looks closely",
         "file is not a database"},
        {"", "it is empty"},
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

TEST_F(SqliteStoreTest, AnOpenDatabaseIsNotWrittenOnceItsCoreFileIsGone) {
    const auto store = open();
    store->setNode(path({u"a"}), *node(u"1"));
    std::filesystem::remove(metadata() / "Project.xml");
    const std::string message = messageOf<MetadataWriteFailure>([&] { store->setNode(path({u"a"}), *node(u"2")); });
    EXPECT_NE(message.find(database().string() + "\": its project has been removed meanwhile"), std::string::npos)
        << message;
    EXPECT_THROW(store->setPaths({}), MetadataWriteFailure);
    EXPECT_EQ(outline(*store), "a(1)");
    const auto damage = dynamic_cast<const project::metadata::DamageReporter&>(*store).findDamage();
    ASSERT_EQ(damage.size(), 1U);
    EXPECT_EQ(damage.front().file, toPath(metadata() / "Project.xml"));
    EXPECT_EQ(damage.front().problem, u"it is missing, while \"metadata.db\" beside it is there");
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

TEST_F(SqliteStoreTest, AChangeRemovesWhatTheMakingOfTheProjectLeft) {
    open()->setNode(path({u"a"}), *node(u"1"));
    writeBytes(metadata() / ".lock", "");
    writeBytes(metadata() / ".pending/new/0", "half a file");
    EXPECT_EQ(outline(*open()), "a(1)");
    open()->setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(outline(*open()), "a(2)");
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
    std::map<std::string, std::string> rows;
    const auto countWritten = [&] {
        std::istringstream lines(
            run("SELECT group_concat(id || ' ' || position || '/' || changed, char(10)) FROM path"));
        std::map<std::string, std::string> now;
        for (std::string id, rest; lines >> id >> rest;)
            now[id] = rest;
        const auto count = std::count_if(now.begin(), now.end(), [&](const auto& row) {
            const auto before = rows.find(row.first);
            return before == rows.end() || before->second != row.second;
        });
        rows = std::move(now);
        return count;
    };
    EXPECT_EQ(countWritten(), 27);
    store->setNode(path({u"m"}), *node(u"2"));
    EXPECT_EQ(countWritten(), 1);
    // One path moves to the front, one to the end, and one between two others; others keep their places.
    std::rotate(paths.begin() + 1, paths.begin() + 13, paths.begin() + 14);
    std::rotate(paths.begin() + 5, paths.begin() + 6, paths.end());
    paths.insert(paths.begin() + 9, path({u"new"}));
    store->setPaths(paths);
    EXPECT_EQ(countWritten(), 3);
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

TEST_F(SqliteStoreTest, AnOlderContentOfTheSameFileIsNotOverwrittenUnseen) {
    open()->setNode(path({u"a"}), *node(u"old"));
    const std::string old = readBytes(database());
    open()->setNode(path({u"a"}), *node(u"new"));
    const auto store = open();
    EXPECT_EQ(outline(*store), "a(new)");
    writeBytes(database(), old);
    EXPECT_THROW(store->setNode(path({u"a"}), *node(u"mine")), MetadataWriteFailure);
    EXPECT_THROW(store->removePath(path({u"a"})), MetadataWriteFailure);
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
            EXPECT_EQ(damage().find('*'), std::string::npos) << "a heading in: " << damage();
            read(*open());
        } catch (const MetadataReadFailure&) {
            ++errors;
        }
    }
    EXPECT_GT(errors, 4U);
}

TEST_F(SqliteStoreTest, AChangeInADamagedPageIsNoSuccessThatIsNone) {
    for (const char16_t* name : {u"a", u"b", u"c"})
        open()->setNode(path({name}), *node(name));
    const std::string good = readBytes(database());
    constexpr std::size_t cells = 4096 + 8;  // of the table of paths: two bytes for each row
    const Content before = read(*open());
    std::size_t refused = 0;
    for (std::size_t row = 0; row < 4; ++row) {
        for (const std::string& place : {std::string("\5\0", 2), good.substr(cells, 2), good.substr(cells + 2, 2)}) {
            writeBytes(database(), std::string(good).replace(cells + 2 * row, 2, place));
            const auto store = open();
            const auto readAll = [&] {
                std::vector<std::u16string> nodes;
                for (const auto& [path, text] : before) {
                    try {
                        const auto found = store->getNode(path);
                        nodes.push_back(found ? describe(*found) : u"none");
                    } catch (const MetadataReadFailure&) {
                        nodes.emplace_back(u"damaged");
                    }
                }
                return nodes;
            };
            const auto nodes = readAll();
            try {
                store->setNode(path({u"new"}), *node(u"new"));
                EXPECT_EQ(store->getNode(path({u"new"}))->get(u"Value"), u"new");
                store->removePath(path({u"new"}));
                EXPECT_FALSE(store->hasPath(path({u"new"})));
            } catch (const project::exception::ProjectException&) {
                ++refused;
            }
            EXPECT_EQ(readAll(), nodes) << "row " << row;
        }
    }
    EXPECT_GT(refused, 1U);
    EXPECT_LT(refused, 12U);
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
        all += (damage.path ? host::toUtf8(damage.path->string()) + ": " : "") + host::toUtf8(damage.problem) + "\n";
    }
    for (const char* problem :
         {"t:a|t:x: the path \"t:a|t:x\" (row 2) has a node", "\nthe path \"t:b|t:x\" (row 4) has no way",
          "t:c: the path \"t:c|t:?\" (row 6) has a type or a location", "(row 8) has no way"})
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

TEST_F(SqliteStoreTest, ALookForDamageThatIsStoppedFindsNone) {
    const auto store = open();
    store->setNode(path({u"a"}), *node(u"1"));
    run("WITH RECURSIVE number (n) AS (SELECT 100 UNION ALL SELECT n + 1 FROM number WHERE n < 20000) INSERT INTO path "
        "SELECT n, 0, 't', CAST(n AS TEXT), n, NULL, 1 FROM number");
    const auto& reporter = dynamic_cast<const project::metadata::DamageReporter&>(*store);
    EXPECT_EQ(reporter.findDamage().size(), 0U);
    host::Interruption wish;
    const host::Interruption::Scope scope(wish);
    wish.request();
    EXPECT_THROW(reporter.findDamage(), host::InterruptedException);
}

TEST_F(SqliteStoreTest, DamageIsToldOnceAsItIsComeUpon) {
    open()->setPaths({MetadataPath(), path({u"a"}), path({u"b"}), path({u"c"})});
    open()->setNode(path({u"b"}), *node(u"1"));
    run("UPDATE path SET location = x'6263FF' WHERE location = 'a'");
    run("UPDATE path SET node = x'00' WHERE location = 'b'");
    run("WITH RECURSIVE deep (n) AS (SELECT 100 UNION ALL SELECT n + 1 FROM deep WHERE n < 600) INSERT INTO path "
        "SELECT n, n - 1, 't', 'deep', 0, NULL, 1 FROM deep; UPDATE path SET parent = 3 WHERE id = 100");
    const CollectedDamage told;
    const std::string file = database().string() + '|';
    const auto store = open();
    const auto lookTwice = [&] {
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(store->getChildren(MetadataPath()), (std::vector{path({u"b"}), path({u"c"})}));
            EXPECT_THROW(store->getNode(path({u"b"})), MetadataReadFailure);
        }
    };
    lookTwice();
    const std::vector expected{file + "the path \"t:?\" (row 1) has a type or a location that is no text",
                               file + "the path \"t:b\" (row 2) has a node that cannot be read"};
    EXPECT_EQ(told.take(), expected);
    // Others' changes elsewhere make them no news, and changes of theirs do.
    open()->addPath(path({u"d"}));
    open()->removePath(path({u"d"}));
    lookTwice();
    EXPECT_EQ(told.take(), std::vector<std::string>());
    run("UPDATE path SET changed = changed + 1 WHERE id IN (1, 2)");
    lookTwice();
    EXPECT_EQ(told.take(), expected);

    std::vector<std::u16string> deepest(store_support::maximumSteps, u"deep");
    deepest.front() = u"c";
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(store->getChildren(path(deepest)).empty());
    EXPECT_EQ(told.take(), std::vector{file + "the path \"" + host::toUtf8(path(deepest).string()) +
                                       "\" (row 348) has paths below it, which have more than 250 steps"});
}

// A project from elsewhere.

/// A rollback journal as SQLite writes it for a transaction over several databases: of nothing, and with the name of
/// the file that is to be removed in the end.
std::string journalNaming(const std::string& name, std::uint32_t pages) {
    const std::string mark = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";
    const auto number = [](std::uint32_t value) {
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift);
        return bytes;
    };
    std::string journal = mark + number(0) + number(1) + number(pages) + number(512) + number(4096);
    journal.resize(512);
    if (name.empty())
        return journal;
    std::uint32_t sum = 0;
    for (const char byte : name)
        sum += static_cast<std::uint32_t>(static_cast<signed char>(byte));
    return journal + number(0x40000000 / 4096 + 1) + name + number(static_cast<std::uint32_t>(name.size())) +
           number(sum) + mark;
}

TEST_F(SqliteStoreTest, AJournalThatNamesAnotherFileRemovesNothing) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto victim = folder_ / "victim";
    const auto journal = metadata() / "metadata.db-journal";
    const auto pages = static_cast<std::uint32_t>(std::filesystem::file_size(database()) / 4096);
    const std::string naming = journalNaming(victim.string(), pages);
    // What SQLite makes of it.
    writeBytes(victim, "precious");
    writeBytes(journal, naming);
    run("SELECT * FROM path");
    ASSERT_FALSE(std::filesystem::exists(victim));
    ASSERT_FALSE(std::filesystem::exists(journal));

    const auto store = open();
    writeBytes(victim, "precious");
    for (const std::string& content : {naming, "no journal" + naming.substr(10)}) {
        writeBytes(journal, content);
        const std::string message = messageOf<MetadataReadFailure>([&] { open(); });
        EXPECT_NE(message.find(journal.string()), std::string::npos) << message;
        EXPECT_NE(message.find("names another file"), std::string::npos) << message;
        EXPECT_THROW(store->getNode(path({u"a"})), MetadataReadFailure);
        EXPECT_THROW(store->setNode(path({u"a"}), *node(u"2")), MetadataReadFailure);
        EXPECT_EQ(readBytes(victim), "precious");
        EXPECT_EQ(readBytes(journal), content);
    }
    // Nor does one make the file as large as it says.
    writeBytes(journal, journalNaming("", 1U << 30U));
    const std::string message = messageOf<MetadataReadFailure>([&] { open(); });
    EXPECT_NE(message.find("larger database"), std::string::npos) << message;
    std::filesystem::remove(journal);
    EXPECT_EQ(outline(*open()), "a(1)");
    EXPECT_EQ(outline(*store), "a(1)");
}

TEST_F(SqliteStoreTest, AJournalOfItsOwnIsRolledBack) {
    open()->setNode(path({u"a"}), *node(u"1"));
    ChildProcess child([this] {
        const auto connection = stores::sqlite::openConnection(database().string(), SQLITE_OPEN_READWRITE);
        stores::sqlite::execute(*connection,
                                "PRAGMA cache_size = 1; BEGIN; UPDATE path SET node = zeroblob(100000); PRAGMA "
                                "cache_spill = 1; UPDATE path SET node = zeroblob(200000)");
        std::raise(SIGKILL);
    });
    ASSERT_EQ(child.wait(), -SIGKILL);
    ASSERT_TRUE(std::filesystem::exists(metadata() / "metadata.db-journal"));
    EXPECT_EQ(outline(*open()), "a(1)");
    EXPECT_EQ(listFiles(), filesAtRest_);
}

TEST_F(SqliteStoreTest, OnlyRegularFilesAreOpened) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto elsewhere = folder_ / "elsewhere";
    std::filesystem::copy(database(), elsewhere);
    const std::string bytes = readBytes(elsewhere);
    const auto expectRefused = [&](const std::filesystem::path& file, const std::string& reason) {
        for (const auto& action :
             {std::function<void()>([&] { open(); }), std::function<void()>([&] { open()->addPath(path({u"b"})); })}) {
            const std::string message = messageOf<MetadataReadFailure>(action);
            EXPECT_NE(message.find(file.string()), std::string::npos) << message;
            EXPECT_NE(message.find(reason), std::string::npos) << message;
        }
        EXPECT_EQ(readBytes(elsewhere), bytes);
    };
    for (const char* name : {"metadata.db", "metadata.db-journal", "metadata.db-wal", "metadata.db-shm"}) {
        const auto file = metadata() / name;
        std::filesystem::remove(file);
        std::filesystem::create_symlink(elsewhere, file);
        expectRefused(file, "symbolic link");
        std::filesystem::remove(file);
        ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
        expectRefused(file, "no regular file");
        std::filesystem::remove(file);
        std::filesystem::create_directory(file);
        expectRefused(file, "no regular file");
        std::filesystem::remove(file);
        if (file == database())
            writeBytes(file, bytes);
    }
    // A project may be reached through a link.
    const TempFolder other;
    std::filesystem::create_directory_symlink(folder_.std(), other / "link");
    const auto store = openStore(u"sqlite", toPath(other / "link"));
    store->setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(outline(*open()), "a(2)");
}

TEST_F(SqliteStoreTest, ASchemaThatChangesMeanwhileIsRefused) {
    const auto store = open();
    store->setNode(path({u"a"}), *node(u"1"));
    run("CREATE TRIGGER t AFTER UPDATE ON path BEGIN DELETE FROM path WHERE id <> 0; END");
    const std::string message = messageOf<MetadataReadFailure>([&] { store->setNode(path({u"a"}), *node(u"2")); });
    EXPECT_NE(message.find("the trigger \"t\""), std::string::npos) << message;
    EXPECT_THROW(store->getChildren(MetadataPath()), MetadataReadFailure);
    run("DROP TRIGGER t");
    EXPECT_EQ(outline(*store), "a(1)");
    store->setNode(path({u"a"}), *node(u"2"));
    EXPECT_EQ(outline(*open()), "a(2)");
}

TEST_F(SqliteStoreTest, NoWalkGoesRoundInCircles) {
    const auto countPaths = [this] {
        const auto store = open();
        std::deque<MetadataPath> queue(1);
        std::size_t count = 0;
        for (; !queue.empty() && count < 1000; ++count, queue.pop_front()) {
            for (const MetadataPath& child : store->getChildren(queue.front()))
                queue.push_back(child);
        }
        return count;
    };
    open()->setPaths({MetadataPath(), path({u"a"}), path({u"a", u"b"}), path({u"c"})});
    const std::string good = readBytes(database());
    ASSERT_EQ(countPaths(), 4U);

    // The root path as the child of its child.
    run("UPDATE path SET parent = 1 WHERE id = 0");
    EXPECT_EQ(countPaths(), 4U);
    EXPECT_NE(damage().find("metadata.db: the row of the root path"), std::string::npos) << damage();
    open()->removePath(path({u"a"}));
    EXPECT_EQ(outline(*open()), "c");

    // Indices that name the row 1 as its own child, which it is not.
    writeBytes(database(), good);
    run("UPDATE path SET parent = 1 WHERE id = 1");
    runWithoutIndices("UPDATE path SET parent = 77 WHERE id = 1");
    run("PRAGMA writable_schema = ON; UPDATE path SET parent = 0 WHERE id = 1");
    ASSERT_EQ(run("SELECT count(*) FROM path INDEXED BY path_order WHERE parent = 1"), "2");
    EXPECT_EQ(countPaths(), 4U);
    EXPECT_FALSE(open()->hasPath(path({u"a", u"a"})));
    EXPECT_NE(damage(), "");

    // Two rows for one path.
    writeBytes(database(), good);
    runWithoutIndices(
        "INSERT INTO path SELECT 9, parent, type, location, position + 9, node, changed FROM path WHERE id = 1");
    run("PRAGMA writable_schema = ON; REINDEX path_order");
    const std::string message = messageOf<MetadataReadFailure>([&] { countPaths(); });
    EXPECT_NE(message.find("\"t:a\" (row "), std::string::npos) << message;
    EXPECT_NE(message.find("is in it twice"), std::string::npos) << message;
    EXPECT_NE(damage(), "");

    // A row that is no child, and no other damage.
    writeBytes(database(), good);
    run("UPDATE path SET parent = NULL WHERE id = 3");
    EXPECT_NE(damage().find("(row 3) has no way to the root path"), std::string::npos) << damage();

    // More steps than a path has.
    writeBytes(database(), good);
    run("WITH RECURSIVE deep (n) AS (SELECT 100 UNION ALL SELECT n + 1 FROM deep WHERE n < 600) INSERT INTO path "
        "SELECT n, "
        "n - 1, 't', 'deep', 0, NULL, 1 FROM deep; UPDATE path SET parent = 2 WHERE id = 100");
    EXPECT_EQ(countPaths(), 4 + store_support::maximumSteps - 1);
    EXPECT_NE(damage().find("(row 349) has no way to the root path, or one of more than 250 steps"), std::string::npos)
        << damage();
}

TEST_F(SqliteStoreTest, ANodeThatNoStoreWritesIsDamageOfItsRowOnly) {
    open()->setPaths({MetadataPath(), path({u"a"}), path({u"b"})});
    open()->setNode(path({u"b"}), *node(u"1"));
    const auto text = [](const std::string& bytes) { return std::string(1, static_cast<char>(bytes.size())) + bytes; };
    const std::string zero(1, '\0');
    const auto leaf = [&](const std::string& name, const std::string& attributes) {
        return text(name) + attributes + zero;
    };
    const auto attribute = [&](const std::string& key, const std::string& value) { return text(key) + text(value); };
    const std::pair<std::string, bool> cases[] = {
        {leaf("n", "\2" + attribute("a", "1") + attribute("b", "2")), true},
        {leaf("n", "\1" + attribute("a", "\xF0\x9F\x90\x80")), false},   // a value that a node refuses
        {leaf("n", "\1" + attribute("a\xF0\x90\x80\x80", "1")), false},  // a key that it refuses
        {leaf("n", "\1" + attribute(" a", "1")), false},                 // one that XML would not keep
        {leaf("no name", zero), false},
        {leaf("a><b", zero), false},
        {leaf("n", "\2" + attribute("b", "1") + attribute("a", "2")), false},  // not in order
        {leaf("n", "\2" + attribute("a", "1") + attribute("a", "2")), false},  // twice
        {"\x81" + zero + "n" + zero + zero, false},                            // a count of two bytes for 1
        {leaf("n", "\1" + attribute("a", "\xC0\x80")), false},                 // no UTF-8
        {leaf("n", zero) + zero, false},                                       // more than a node
        {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F", false},
        {"", false},
    };
    const std::string hexDigits = "0123456789abcdef";
    for (const auto& [bytes, isSound] : cases) {
        std::string hex;
        for (const char byte : bytes) {
            hex += hexDigits[static_cast<unsigned char>(byte) / 16];
            hex += hexDigits[static_cast<unsigned char>(byte) % 16];
        }
        run("UPDATE path SET node = x'" + hex + "' WHERE location = 'a'");
        const auto store = open();
        EXPECT_EQ(store->getChildren(MetadataPath()).size(), 2U);
        EXPECT_EQ(store->getNode(path({u"b"}))->get(u"Value"), u"1");
        if (isSound) {
            EXPECT_EQ(describe(*store->getNode(path({u"a"}))), u"<n a='1' b='2'>");
            EXPECT_EQ(damage(), "");
            continue;
        }
        const std::string message = messageOf<MetadataReadFailure>([&] { store->getNode(path({u"a"})); });
        EXPECT_NE(message.find("the node of the path \"t:a\" in it is damaged"), std::string::npos) << hex << message;
        EXPECT_NE(damage().find("\"t:a\" (row 1) has a node that cannot be read"), std::string::npos)
            << hex << damage();
        EXPECT_THROW(store->setNode(path({u"a"}), *node(u"2")), MetadataWriteFailure) << hex;
    }
}

TEST_F(SqliteStoreTest, PathsHaveALimitOfSteps) {
    const auto store = open();
    std::vector<std::u16string> steps(store_support::maximumSteps, u"s");
    store->addPath(path(steps));
    EXPECT_TRUE(open()->hasPath(path(steps)));
    EXPECT_EQ(damage(), "");
    steps.emplace_back(u"s");
    const std::string message = messageOf<MetadataWriteFailure>([&] { store->setNode(path(steps), *node(u"1")); });
    EXPECT_NE(message.find("a path of 251 steps"), std::string::npos) << message;
    EXPECT_THROW(store->setPaths({MetadataPath(), path(steps)}), MetadataWriteFailure);
    EXPECT_FALSE(store->hasPath(path(steps)));
}

TEST_F(SqliteStoreTest, WhatIsReadAheadIsOfTheParentThatWasAskedFor) {
    open()->setNodes(
        {{path({u"a", u"x"}), node(u"1")}, {path({u"a", u"y"}), node(u"2")}, {path({u"b", u"x"}), node(u"3")}});
    const auto store = open();
    const project::metadata::RepeatableRead reading(*store);
    EXPECT_EQ(store->getNode(path({u"a", u"y"}))->get(u"Value"), u"2");
    EXPECT_EQ(store->getNode(path({u"b", u"x"}))->get(u"Value"), u"3");
    EXPECT_EQ(store->getNode(path({u"a", u"x"}))->get(u"Value"), u"1");
    EXPECT_FALSE(store->hasNode(path({u"b", u"y"})));
}

TEST_F(SqliteStoreTest, ADamagedCoreFileDoesNotLockOutTheDatabase) {
    open()->setNode(path({u"a"}), *node(u"1"));
    const auto core = metadata() / "Project.xml";
    for (const char* content : {"", "no xml", "<Project MetadataType="}) {
        writeBytes(core, content);
        ASSERT_TRUE(project::metadata::getNamedFactory(u"sqlite")->canManage(folder_.path()));
        const auto store = open();
        EXPECT_EQ(outline(*store), "a(1)");
        EXPECT_EQ(damage().find("Project.xml: "), 0U) << damage();
        store->setNode(path({u"b"}), *node(u"2"));
        store->removePath(path({u"b"}));
        EXPECT_EQ(readBytes(core), content);
    }
    std::filesystem::remove(core);
    ASSERT_EQ(mkfifo(core.c_str(), 0666), 0);
    EXPECT_EQ(outline(*open()), "a(1)");
    EXPECT_EQ(damage().find("Project.xml: it is no regular file"), 0U) << damage();
    open()->setNode(path({u"a"}), *node(u"1"));
    std::filesystem::remove(core);
    // But not what is no database of a store.
    run("CREATE TABLE other (x)");
    EXPECT_FALSE(project::metadata::getNamedFactory(u"sqlite")->canManage(folder_.path()));
    // Nor one that another kind of store has left.
    run("DROP TABLE other");
    writeBytes(core, "<Project MetadataType='other'/>");
    EXPECT_FALSE(project::metadata::getNamedFactory(u"sqlite")->canManage(folder_.path()));
}

}  // namespace
