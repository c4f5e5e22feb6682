// Whatever call of the system fails, and wherever the process dies or runs out of memory: an operation ends with an
// error or with the new content, the content on disk is the old or the new one as a whole, and the store goes on.
//
// Every call fails once with one of its errors, and of the rest a sample is tried. With PROJECT_METADATA_SOAK in the
// environment it is everything: every error, once and from then on, every death, after a failure too, every allocation.
// Under a sanitizer, with which all takes several times as long, it is a third.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>

#include "host/MessageException.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/FolderLock.hpp"
#include "tests/faults/AllocationFaults.hpp"
#include "tests/faults/Scenarios.hpp"
#include "tests/faults/SystemFaults.hpp"
#include "tests/support/ChildProcess.hpp"

using namespace test;

namespace {

#if defined(ADDRESS_SANITIZER)
constexpr int pace = 3;
#else
constexpr int pace = 1;
#endif

bool isSoak() {
    return std::getenv("PROJECT_METADATA_SOAK") != nullptr;
}

/// What a child process tells, in memory that it shares with the test.
struct Report {
    int calls;
    int injected;
    bool isDone;       ///< whether it came to its end
    bool isSuccess;    ///< of the operation
    bool isNew;        ///< whether the new content was found, otherwise the old one
    char what[4096];   ///< what was made to fail, and what the operation said
    char wrong[8192];  ///< what is not as it should be
};

class SharedReport {
public:
    SharedReport()
        : report_(static_cast<Report*>(
              mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        if (report_ == MAP_FAILED)
            throw std::runtime_error("no memory to share");
    }
    ~SharedReport() { munmap(report_, sizeof(Report)); }

    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;

    Report* operator->() const { return report_; }
    void clear() { *report_ = {}; }

private:
    Report* report_;
};

template <std::size_t size>
void put(char (&place)[size], const std::string& text) {
    std::snprintf(place, size, "%s", text.c_str());
}

std::string toText(const Content& content) {
    std::string text;
    for (const auto& [path, node] : content)
        text += host::toUtf8(path.string()) + " " + host::toUtf8(node) + "\n";
    return text;
}

/// One way in which a run is disturbed: how it begins, and how it ends.
struct Disturbance {
    std::function<void()> start;
    std::function<FaultCounts()> stop;
};

class FaultTest : public testing::TestWithParam<std::tuple<std::u16string, Scenario>> {
protected:
    FaultTest() {
        if (scenario_.prepare)
            scenario_.prepare(*open());
        before_ = snapshot();
        copyProject(template_, project_);
        if (scenario_.change)
            scenario_.change(*open());
        after_ = snapshot();
        if (scenario_.isInterrupted)
            interrupt();
    }

    std::unique_ptr<MetadataManager> open() const { return openStore(store_, toPath(project_)); }

    Content snapshot() const { return test::read(*open()); }

    static void copyProject(const std::filesystem::path& to, const std::filesystem::path& from) {
        std::filesystem::remove_all(to);
        if (std::filesystem::exists(from))
            std::filesystem::copy(from, to, std::filesystem::copy_options::recursive);
        else
            std::filesystem::create_directory(to);
    }

    /// Leaves the project as it is in the middle of the change: the first state from which others complete it.
    void interrupt() {
        const auto pristine = folder_ / "pristine";
        std::filesystem::rename(template_, pristine);
        for (int killAt = 1;; ++killAt) {
            copyProject(project_, pristine);
            ChildProcess child([&] {
                const auto store = open();
                trapSystemCalls();
                startFaults({0, false, 0, killAt});
                scenario_.change(*store);
            });
            const bool isOver = child.wait() == 0;
            copyProject(template_, project_);
            if (isOver || snapshot() == after_)
                break;
        }
    }

    /// Does what `scenario_` does to a store, and looks at what came of it. In a child process.
    void run(const Disturbance& disturbance) {
        std::unique_ptr<MetadataManager> store;
        if (!scenario_.includesOpening)
            store = open();
        Content found;
        std::string error;
        bool isSuccess = false;
        disturbance.start();
        try {
            if (!store)
                store = open();
            if (scenario_.change)
                scenario_.change(*store);
            else
                found = test::read(*store);
            isSuccess = true;
        } catch (const std::exception& caught) {
            disturbance.stop();
            error = caught.what();
            // An error of the library or the host, or the lack of memory itself.
            if (!dynamic_cast<const host::UserException*>(&caught) && !dynamic_cast<const std::bad_alloc*>(&caught))
                put(report_->wrong, "an error of another kind: " + error);
            // Nothing has failed for this reason.
            if (error.find(std::strerror(ENOENT)) != std::string::npos)
                put(report_->wrong, "another cause than the one: " + error);
        }
        const FaultCounts counts = disturbance.stop();
        report_->calls = counts.calls;
        report_->injected = counts.injected;
        report_->isSuccess = isSuccess;
        put(report_->what, counts.what + (isSuccess ? "; succeeded" : "; " + error));
        if (isSuccess && !scenario_.change && found != before_)
            return put(report_->wrong, "read something else:\n" + toText(found));
        if (report_->wrong[0] == '\0')
            put(report_->wrong, judge(store, isSuccess));
        report_->isDone = true;
    }

    /// What is wrong after the operation, nothing if nothing is.
    std::string judge(std::unique_ptr<MetadataManager>& store, bool isSuccess) {
        if (!store)
            store = open();
        // What has failed holds nobody up. The store lives on and does nothing meanwhile.
        if (isForOthers_)
            addAndRemove(*open());
        const Content now = test::read(*store);
        const Content reopened = snapshot();
        if (now != reopened)
            return "the store has\n" + toText(now) + "and a reopened one\n" + toText(reopened);
        report_->isNew = now == after_;
        if (now != after_ && now != before_)
            return "a mixture:\n" + toText(now);
        if (isSuccess && now != after_)
            return "a success that was none:\n" + toText(now);
        addAndRemove(*store);
        if (scenario_.change)
            scenario_.change(*store);
        if (const Content again = snapshot(); again != after_)
            return "when done again:\n" + toText(again);
        return listStrays();
    }

    static void addAndRemove(MetadataManager& store) {
        store.setNode(path({u"afterwards"}), *node(u"1"));
        store.removePath(path({u"afterwards"}));
    }

    /// Scratch files, locks and empty folders are nothing to leave behind.
    std::string listStrays() const {
        std::string strays;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(project_)) {
            const std::string name = entry.path().filename();
            // An empty folder that could not be removed does no harm.
            const bool isEmptyFolder = entry.is_directory() && std::filesystem::is_empty(entry);
            if (name.front() == '.' || (isEmptyFolder && std::strncmp(report_->what, "rmdir", 5) != 0))
                strays += "left behind: " + entry.path().string() + "\n";
        }
        return strays;
    }

    /// Carries out one run on a fresh copy of the project. @return whether it was disturbed
    bool runOnce(const std::string& name, const Disturbance& disturbance) {
        copyProject(project_, template_);
        report_.clear();
        ChildProcess child([&] {
            alarm(patience);
            run(disturbance);
        });
        const int status = child.wait();
        ++runs_;
        if (status == -SIGKILL) {
            // It was killed on purpose.
            const Content now = snapshot();
            ++outcomes_[now == after_ ? "killed, new" : "killed, old"];
            if (now != before_ && now != after_)
                blame(name, "a mixture:\n" + toText(now));
            return true;
        }
        if (status != 0 || !report_->isDone || report_->wrong[0] != '\0')
            blame(name, report_->what + ("\nended with " + std::to_string(status) + "\n") + report_->wrong);
        const bool isDisturbed = report_->injected > 0;
        if (isDisturbed)
            ++outcomes_[report_->isSuccess ? "succeeded" : report_->isNew ? "failed, new" : "failed, old"];
        if (std::getenv("PROJECT_METADATA_FAULTS_VERBOSE") != nullptr)
            std::printf("%s: %s%s\n", name.c_str(), report_->what, report_->isNew ? "; new" : "; old");
        return isDisturbed;
    }

    bool runWith(const FaultPlan& plan) {
        const std::string name = "call " + std::to_string(plan.failAt) + (plan.isLasting ? " and all after it" : "") +
                                 " variant " + std::to_string(plan.variant) + " kill " + std::to_string(plan.killAt) +
                                 (isForOthers_ ? " for others" : "");
        return runOnce(name, {[plan] {
                                  trapSystemCalls();
                                  startFaults(plan);
                              },
                              stopFaults});
    }

    bool runWithout(long allocation, bool isLasting) {
        const std::string name = "allocation " + std::to_string(allocation) + (isLasting ? " and all after it" : "");
        return runOnce(name, {[=] { startAllocationFaults(allocation, isLasting); },
                              [] {
                                  const AllocationCounts counts = stopAllocationFaults();
                                  return FaultCounts{static_cast<int>(counts.allocations),
                                                     static_cast<int>(counts.failed), "an allocation", 0};
                              }});
    }

    /// From one call, or allocation, that is tried to the next, of `count`.
    static int stepFor(int count) { return isSoak() ? 1 : pace * (1 + count / 60); }

    /// Reports the first few; more do not tell more.
    void blame(const std::string& name, const std::string& what) {
        if (++wrong_ <= 5)
            ADD_FAILURE() << name << ": " << what;
    }

    void printOutcomes(const char* what) const {
        std::printf("%s %s %s: %d runs", what, host::toUtf8(store_).c_str(), scenario_.name, runs_);
        for (const auto& [outcome, count] : outcomes_)
            std::printf(", %d %s", count, outcome.c_str());
        std::printf(", %d wrong\n", wrong_);
        std::fflush(stdout);
    }

    /// In seconds. Less than a store waits for the locks of others, of which nobody holds any here.
    static constexpr unsigned patience = 8;

    const std::u16string store_ = std::get<0>(GetParam());
    const Scenario scenario_ = std::get<1>(GetParam());
    TempFolder folder_{memoryFolder()};
    const std::filesystem::path template_ = folder_ / "template";
    const std::filesystem::path project_ = [this] {
        std::filesystem::create_directory(folder_ / "project");
        return folder_ / "project";
    }();
    Content before_;
    Content after_;
    SharedReport report_;
    bool isForOthers_ = false;  // whether another store is the first to go on after a failure
    int runs_ = 0;
    int wrong_ = 0;
    std::map<std::string, int> outcomes_;
};

TEST_P(FaultTest, AFailedCallIsToldAndTearsNothing) {
    int calls = 0;
    for (bool isDisturbed = true; isDisturbed;) {
        calls += pace;
        isDisturbed = false;
        for (int variant = 0; variant < (isSoak() ? faultVariants : 1); ++variant)
            isDisturbed = runWith({calls, false, isSoak() ? variant : calls, 0}) || isDisturbed;
    }
    for (const bool isForOthers : {false, true}) {
        isForOthers_ = isForOthers;
        for (int call = 1; call < calls; call += stepFor(calls)) {
            for (int variant = 0; variant < (isSoak() ? faultVariants : 1); ++variant)
                runWith({call, true, isSoak() ? variant : call, 0});
        }
    }
    printOutcomes("calls");
    EXPECT_GT(outcomes_["failed, old"] + outcomes_["failed, new"], runs_ / 4);
    EXPECT_GT(outcomes_["succeeded"], 0) << "no call was of no importance: were they counted where they matter?";
}

TEST_P(FaultTest, DeathTearsNothing) {
    runWith({});
    const int calls = report_->calls;
    int kills = 0;
    for (int call = 1; call <= calls; call += stepFor(calls)) {
        runWith({0, false, 0, call});
        ++kills;
    }
    // A failure, and death while it is dealt with.
    for (int call = 1; call <= calls; call += stepFor(calls)) {
        for (int later = isSoak() ? 1 : 1 + call % 17; later <= 40; later += isSoak() ? 1 : 40)
            runWith({call, later % 2 == 0, later, call + later});
    }
    printOutcomes("kills");
    EXPECT_GE(outcomes_["killed, old"] + outcomes_["killed, new"], kills);
    EXPECT_GT(outcomes_["killed, new"], 0);
}

TEST_P(FaultTest, AFailedAllocationTearsNothing) {
    runWithout(0, false);
    const int allocations = report_->calls;
    for (const bool isLasting : {false, true}) {
        for (int allocation = 1; allocation <= allocations; allocation += stepFor(allocations))
            runWithout(allocation, isLasting);
    }
    printOutcomes("allocations");
    EXPECT_GT(outcomes_["failed, old"] + outcomes_["failed, new"], 0);
}

TEST(FolderLockTest, WhatCannotBeLockedIsNotHeld) {
    const TempFolder folder(memoryFolder());
    std::ofstream(folder / ".lock").close();
    constexpr std::array meanings{"interrupted, and done again", "No locks available", "Input/output error"};
    for (int variant = 0; variant < 3; ++variant) {
        ChildProcess child([&] {
            trapSystemCalls();
            startFaults({2, false, variant, 0});
            std::string answer = "held";
            try {
                if (!store_support::isLockHeld(folder.path()))
                    answer = meanings[0];
            } catch (const project::metadata::MetadataReadFailure& error) {
                answer = error.what();
            }
            if (stopFaults().what.compare(0, 5, "flock") != 0 ||
                answer.find(meanings.at(static_cast<std::size_t>(variant))) == std::string::npos)
                throw std::runtime_error(answer);
        });
        EXPECT_EQ(child.wait(), 0) << variant;
    }
}

INSTANTIATE_TEST_SUITE_P(Stores, FaultTest,
                         testing::Combine(testing::ValuesIn(fileStores()), testing::ValuesIn(allScenarios())),
                         [](const auto& param) {
                             return host::toUtf8(std::get<0>(param.param)) + "_" + std::get<1>(param.param).name;
                         });

}  // namespace
