/// Batches of file jobs: what subscribers are told, in which order everything happens, and how long guards live.
#include "project/metadata/FileJobManager.hpp"

#include <atomic>
#include <future>
#include <thread>
#include <type_traits>

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;
using Paths = std::vector<host::Path>;

namespace {

static_assert(!std::is_copy_constructible_v<FileJobManager> && std::is_copy_constructible_v<FileJob>);

/// A manager and a record of everything that happens in a batch.
class FileJobTest : public testing::Test {
protected:
    struct Guard : ChangeGuard {
        Guard(Texts& allEvents, std::u16string event) : events(allEvents), end(std::move(event)) {}
        ~Guard() override { events.push_back(end); }

        Texts& events;
        std::u16string end;
    };

    /// A subscriber that notes what it is told, and the end of its guard.
    FileJobManager::WriteSignal::slot_type slot(const std::u16string& name) {
        return [this, name](const Paths& created, const Paths& modified, const Paths& deleted) {
            happens(name);
            told.push_back({textsOf(created), textsOf(modified), textsOf(deleted)});
            return std::make_shared<Guard>(events, u"~" + name);
        };
    }

    FileJob job(const std::u16string& name, Paths filesToWrite = {}, Paths filesToDelete = {}) {
        return {std::move(filesToWrite), std::move(filesToDelete), [this, name] { happens(name); }};
    }

    void happens(const std::u16string& event) {
        events.push_back(event);
        if (event == failing)
            throw std::out_of_range("failing on purpose");
    }

    /// What happens in a batch of three jobs with three subscribers on each side, when `failingEvent` fails.
    Texts eventsWhenFails(const std::u16string& failingEvent) {
        failing = failingEvent;
        for (const char16_t* name : {u"P1", u"P2", u"P3"})
            manager.onPreWrite(slot(name));
        for (const char16_t* name : {u"Q1", u"Q2", u"Q3"})
            manager.onPostWrite(slot(name));
        try {
            manager.process({job(u"J1"), job(u"J2"), job(u"J3")});
        } catch (const std::out_of_range&) {
            events.push_back(u"caught");
        }
        return events;
    }

    std::u16string failing;
    Texts events;
    std::vector<std::vector<Texts>> told;
    FileJobManager manager;
};

}  // namespace

TEST_F(FileJobTest, guardsAreReleasedFrontToBackThoseOfTheSecondNotificationFirst) {
    EXPECT_EQ(eventsWhenFails(u"nothing"), (Texts{u"P1", u"P2", u"P3", u"J1", u"J2", u"J3", u"Q1", u"Q2", u"Q3",  //
                                                  u"~Q1", u"~Q2", u"~Q3", u"~P1", u"~P2", u"~P3"}));
}

TEST_F(FileJobTest, anErrorOfAJobEndsTheBatch) {
    EXPECT_EQ(eventsWhenFails(u"J2"), (Texts{u"P1", u"P2", u"P3", u"J1", u"J2", u"~P1", u"~P2", u"~P3", u"caught"}));
}

TEST_F(FileJobTest, anErrorOfASubscriberEndsTheBatch) {
    EXPECT_EQ(eventsWhenFails(u"P3"), (Texts{u"P1", u"P2", u"P3", u"~P1", u"~P2", u"caught"}));
}

TEST_F(FileJobTest, anErrorOfASubscriberAfterTheJobsReleasesAllGuards) {
    EXPECT_EQ(eventsWhenFails(u"Q3"), (Texts{u"P1", u"P2", u"P3", u"J1", u"J2", u"J3", u"Q1", u"Q2", u"Q3",  //
                                             u"~Q1", u"~Q2", u"~P1", u"~P2", u"~P3", u"caught"}));
}

TEST_F(FileJobTest, subscribersAreToldTwiceWhatIsNewModifiedAndDeleted) {
    const TempFolder folder;
    const auto at = [&](const char16_t* name) { return folder.path() / name; };
    writeBytes(folder / "there", "");
    manager.onPreWrite(slot(u"P"));
    manager.onPostWrite(slot(u"Q"));
    const Paths written{at(u"new"), at(u"there"), at(u"z")};
    const Paths deleted{at(u"there"), at(u"never there")};
    const FileJob changing(written, deleted, [&] {
        writeBytes(folder / "new", "");
        std::filesystem::remove(folder / "there");
    });
    manager.process({changing, job(u"J", {at(u"new"), at(u"a"), at(u"there")}, {at(u"there")})});

    const std::vector<Texts> expected{textsOf(Paths{at(u"new"), at(u"z"), at(u"new"), at(u"a")}),
                                      textsOf(Paths{at(u"there"), at(u"there")}),
                                      textsOf(Paths{at(u"there"), at(u"never there"), at(u"there")})};
    EXPECT_EQ(told, (std::vector{expected, expected})) << "not looked up again after the jobs";
    EXPECT_EQ(textsOf(changing.getFilesToWrite()), textsOf(written));
    EXPECT_EQ(textsOf(changing.getFilesToDelete()), textsOf(deleted));
}

TEST_F(FileJobTest, anEmptyBatchIsNotifiedToo) {
    manager.onPreWrite(slot(u"P"));
    manager.onPostWrite(slot(u"Q"));
    manager.process({});
    EXPECT_EQ(events, (Texts{u"P", u"Q", u"~Q", u"~P"}));
    EXPECT_EQ(told, (std::vector{std::vector<Texts>(3), std::vector<Texts>(3)}));
}

TEST_F(FileJobTest, subscribersComeAndGoAndMayGiveNoGuard) {
    manager.process({job(u"J")});
    EXPECT_EQ(events, Texts{u"J"});

    events.clear();
    manager.onPreWrite(slot(u"P1"));
    boost::signals2::connection ended = manager.onPreWrite(slot(u"ended"));
    manager.onPreWrite([](const Paths&, const Paths&, const Paths&) { return std::shared_ptr<ChangeGuard>(); });
    manager.onPreWrite(slot(u"P2"));
    ended.disconnect();
    manager.process({job(u"J")});
    EXPECT_EQ(events, (Texts{u"P1", u"P2", u"J", u"~P1", u"~P2"}));
}

TEST_F(FileJobTest, aJobWithoutAnActionIsAnError) {
    manager.onPreWrite(slot(u"P"));
    manager.onPostWrite(slot(u"Q"));
    EXPECT_THROW(manager.process({job(u"J1"), FileJob({}, {}, nullptr), job(u"J2")}), std::bad_function_call);
    EXPECT_EQ(events, (Texts{u"P", u"J1", u"~P"}));
}

TEST(CombinerTest, keepsEveryResultAlsoEmptyOnes) {
    struct AnyGuard : ChangeGuard {};
    const std::vector<std::shared_ptr<ChangeGuard>> results{nullptr, std::make_shared<AnyGuard>(), nullptr};
    EXPECT_EQ(detail::MetadataEventCombiner()(results.begin(), results.end()), results);
}

TEST_F(FileJobTest, othersMaySubscribeWhileBatchesRun) {
    std::atomic<int> calls{0};
    const auto counting = [&](const Paths&, const Paths&, const Paths&) {
        ++calls;
        return std::shared_ptr<ChangeGuard>();
    };
    const std::future<void> subscribing = std::async(std::launch::async, [&] {
        do {
            const boost::signals2::scoped_connection before = manager.onPreWrite(counting);
            const boost::signals2::scoped_connection after = manager.onPostWrite(counting);
            std::this_thread::yield();
        } while (calls < 1000);
    });
    while (subscribing.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        manager.process({job(u"J")});
    EXPECT_FALSE(events.empty());
}
