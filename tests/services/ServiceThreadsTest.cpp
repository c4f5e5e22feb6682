// Several threads at once. These are worth most under the thread sanitizer.
#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/services/Helpers.hpp"

namespace tests {
namespace {

using cppmicroservices::Bundle;

constexpr int threadCount = 4;
constexpr int rounds = 200;

class ServiceThreadsTest : public StartedFramework {
protected:
    /// Runs `work(number of the thread)` in several threads, which begin together.
    static void inThreads(const std::function<void(int)>& work) {
        std::atomic<int> waiting{threadCount};
        std::vector<std::thread> threads;
        threads.reserve(threadCount);
        for (int number = 0; number < threadCount; ++number) {
            threads.emplace_back([&, number] {
                --waiting;
                while (waiting > 0) {
                    std::this_thread::yield();
                }
                work(number);
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
    }
};

TEST_F(ServiceThreadsTest, registerListAndUnregister) {
    const auto constant = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
    inThreads([&](int) {
        auto own = context;
        for (int round = 0; round < rounds; ++round) {
            auto registration = own.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
            const auto references = own.GetServiceReferences<Greeter>();
            EXPECT_GE(references.size(), 2u);
            for (const auto& reference : references) {
                try {
                    const auto greeter = own.GetServiceObjects(reference).GetService();
                    EXPECT_TRUE(!greeter || greeter->greet() == "hello");
                } catch (const std::invalid_argument&) {
                    EXPECT_FALSE(reference);  // gone since it was listed
                }
            }
            registration.Unregister();
        }
    });
    EXPECT_EQ(countGreeters(), 1u);
}

TEST_F(ServiceThreadsTest, oneUnregistersForAll) {
    for (int round = 0; round < rounds; ++round) {
        const auto registration = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
        inThreads([&](int) {
            auto own = registration;
            try {
                own.Unregister();
            } catch (const std::logic_error&) {  // another was first
            }
        });
        EXPECT_FALSE(context.GetServiceReference<Greeter>());
    }
}

TEST_F(ServiceThreadsTest, installAndStartOneBundle) {
    std::vector<long> ids(threadCount);
    inThreads([&](int number) {
        auto bundle = install("greeter");
        ids[static_cast<std::size_t>(number)] = bundle.GetBundleId();
        bundle.Start();
        EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    });
    EXPECT_EQ(std::set(ids.begin(), ids.end()).size(), 1u);
    EXPECT_EQ(context.GetBundles().size(), 2u);
    EXPECT_EQ(countGreeters(), 1u);
}

TEST_F(ServiceThreadsTest, startAndStopOneBundle) {
    const auto bundle = install("greeter");
    inThreads([&](int number) {
        auto own = bundle;
        for (int round = 0; round < rounds; ++round) {
            if (number % 2 == 0) {
                own.Start();
            } else {
                own.Stop();
            }
            EXPECT_LE(countGreeters(), 1u);
        }
    });
    auto last = bundle;
    last.Start();
    EXPECT_EQ(countGreeters(), 1u);
}

TEST_F(ServiceThreadsTest, useTheContextUntilTheFrameworkStops) {
    std::atomic<int> ended{0};
    inThreads([&](int number) {
        if (number == 0) {
            framework.Stop();
        }
        try {
            for (auto own = context;;) {
                auto registration = own.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
                registration.Unregister();
            }
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "The bundle context is no longer valid");
            ++ended;
        } catch (const std::logic_error&) {  // the framework was the one to unregister
            ++ended;
        }
    });
    EXPECT_EQ(ended, threadCount);
}

}  // namespace
}  // namespace tests
