/// Batches of file jobs: what subscribers are told, in which order everything happens, and how long guards live.
#include "project/metadata/FileJobManager.hpp"

#include <stdexcept>

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

struct Guard : ChangeGuard {
    Guard(Texts& allEvents, std::u16string event) : events(allEvents), end(std::move(event)) {}
    ~Guard() override { events.push_back(end); }

    Texts& events;
    std::u16string end;
};

/// A manager and a record of everything that happens in a batch.
struct Batch {
    void happens(const std::u16string& event) {
        events.push_back(event);
        if (event == failing)
            throw std::out_of_range("failing on purpose");
    }

    /// A subscriber that notes what it is told, and the end of its guard.
    FileJobManager::WriteSignal::slot_type slot(const std::u16string& name) {
        return [this, name](const Paths& created, const Paths& modified, const Paths& deleted) {
            happens(name);
            told.push_back({created, modified, deleted});
            return std::make_shared<Guard>(events, u"~" + name);
        };
    }

    std::u16string failing;
    Texts events;
    std::vector<std::vector<Paths>> told;
    FileJobManager manager;
};

}  // namespace

TEST(FileJobTest, guardsAreReleasedFrontToBackThoseOfTheSecondNotificationFirstAlsoAfterErrors) {
    const std::pair<std::u16string, Texts> cases[] = {
        {u"", {u"P1", u"P2", u"J1", u"J2", u"Q1", u"Q2", u"Q3", u"~Q1", u"~Q2", u"~Q3", u"~P1", u"~P2"}},
        {u"P2", {u"P1", u"P2", u"~P1", u"caught"}},
        {u"J1", {u"P1", u"P2", u"J1", u"~P1", u"~P2", u"caught"}},
        {u"Q3", {u"P1", u"P2", u"J1", u"J2", u"Q1", u"Q2", u"Q3", u"~Q1", u"~Q2", u"~P1", u"~P2", u"caught"}}};
    for (const auto& [failing, expected] : cases) {
        Batch batch;
        batch.failing = failing;
        batch.manager.onPreWrite(batch.slot(u"P1"));
        batch.manager.onPreWrite([](const Paths&, const Paths&, const Paths&) { return nullptr; });
        batch.manager.onPreWrite(batch.slot(u"P2"));
        for (const char16_t* name : {u"Q1", u"Q2", u"Q3"})
            batch.manager.onPostWrite(batch.slot(name));
        try {
            batch.manager.process({{{}, {}, [&] { batch.happens(u"J1"); }}, {{}, {}, [&] { batch.happens(u"J2"); }}});
        } catch (const std::out_of_range&) {
            batch.events.emplace_back(u"caught");
        }
        EXPECT_EQ(batch.events, expected);
    }
}

TEST(FileJobTest, subscribersAreToldTwiceWhatIsNewModifiedAndDeletedBeforeTheJobs) {
    const TempFolder folder;
    const auto at = [&](const char16_t* name) { return folder.path() / name; };
    writeBytes(folder / "there", "");
    Batch batch;
    batch.manager.onPreWrite(batch.slot(u"P"));
    batch.manager.onPostWrite(batch.slot(u"Q"));
    const FileJob changing({at(u"new"), at(u"there"), at(u"z")}, {at(u"there"), at(u"never there")}, [&] {
        writeBytes(folder / "new", "");
        std::filesystem::remove(folder / "there");
    });
    batch.manager.process({changing, FileJob({at(u"new"), at(u"a"), at(u"there")}, {at(u"there")}, [] {})});

    const std::vector<Paths> expected{{at(u"new"), at(u"z"), at(u"new"), at(u"a")},
                                      {at(u"there"), at(u"there")},
                                      {at(u"there"), at(u"never there"), at(u"there")}};
    EXPECT_EQ(batch.told, (std::vector{expected, expected}));
}
