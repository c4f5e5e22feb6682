// The service framework: bundles from installation to the end, services from registration to the end, and both from
// several threads at once, which is worth most under the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "cppmicroservices/ServiceObjects.h"
#include "tests/services/Greeter.hpp"

namespace tests {

struct Counter {
    virtual ~Counter() = default;
    virtual int count() = 0;
};

}  // namespace tests

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(tests::Counter, "org.example.Counter/1.0")

namespace tests {
namespace {

using namespace cppmicroservices;

constexpr int threadCount = 4;
constexpr int rounds = 200;

struct SimpleGreeter final : Greeter, Counter {
    explicit SimpleGreeter(const std::string& itsText = "hello") : text(itsText) {}
    std::string greet() const override { return text; }
    int count() override { return ++counted; }

    const std::string text;
    int counted = 0;
};

std::string bundleFile(const std::string& name) {
    return std::string(SERVICES_TEST_BUNDLES) + "/" + name + ".so";
}

/// The text of the std::runtime_error that `action` throws; a failure of the test when it throws none.
std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

void expectInvalidContext(const std::function<void()>& use) {
    EXPECT_EQ(messageOf(use), "The bundle context is no longer valid");
}

/// Runs `work(number of the thread)` in several threads, which begin together.
void inThreads(const std::function<void(int)>& work) {
    std::atomic<int> waiting{threadCount};
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([&, number] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            work(number);
        });
    }
    for (auto& thread : threads)
        thread.join();
}

/// A started framework and its context.
class StartedFramework : public testing::Test {
protected:
    StartedFramework() {
        framework.Start();
        context = framework.GetBundleContext();
    }
    ~StartedFramework() override { stopFramework(); }

    void stopFramework() {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    Bundle install(const std::string& name) { return BundleContext(context).InstallBundles(bundleFile(name)).at(0); }

    [[nodiscard]] auto offer(const std::string& text = "hello", const ServiceProperties& properties = {}) {
        return BundleContext(context).RegisterService<Greeter>(std::make_shared<SimpleGreeter>(text), properties);
    }

    auto greeters(const std::string& filter = {}) {
        return BundleContext(context).GetServiceReferences<Greeter>(filter);
    }

    Framework framework = FrameworkFactory().NewFramework();
    BundleContext context;
};

class BundleTest : public StartedFramework {};
class ServiceTest : public StartedFramework {};
class ServiceThreadsTest : public StartedFramework {};

TEST_F(BundleTest, isInstalledOncePerLocationUntilItIsUninstalled) {
    auto bundle = install("greeter");
    EXPECT_EQ(install("greeter"), bundle);
    EXPECT_EQ(context.GetBundles().size(), 2u);

    bundle.Start();
    bundle.Uninstall();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_UNINSTALLED);
    EXPECT_TRUE(greeters().empty());
    EXPECT_THROW(bundle.Start(), std::logic_error);
    install("greeter").Start();
    EXPECT_EQ(greeters().size(), 1u);
}

TEST_F(BundleTest, whatIsNoBundleIsRefusedByName) {
    install("greeter");  // the one that "copy" is a copy of: both would share one context
    for (const auto* name : {"absent", "text", "nobundle", "copy"}) {
        const auto message = messageOf([&] { install(name); });
        EXPECT_NE(message.find(bundleFile(name)), std::string::npos) << message;
    }
    EXPECT_EQ(context.GetBundles().size(), 2u);
}

TEST_F(BundleTest, offersItsServiceWhileItIsActive) {
    const auto registration = context.RegisterService<Counter>(std::make_shared<SimpleGreeter>());
    auto bundle = install("greeter");
    bundle.Start();
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    ASSERT_EQ(greeters().size(), 1u);
    const auto reference = context.GetServiceReference<Greeter>();
    EXPECT_EQ(reference.GetBundle(), bundle);
    const auto greeter = context.GetService(reference);
    EXPECT_EQ(greeter->greet(), "hello from tests_greeter");
    const auto objects = bundle.GetBundleContext().GetServiceObjects(registration.GetReference());
    EXPECT_NE(objects.GetService(), nullptr);

    bundle.Stop();
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(reference);
    EXPECT_TRUE(greeters().empty());
    EXPECT_EQ(greeter->greet(), "hello from nowhere");  // for whoever still holds it
    expectInvalidContext([&] { objects.GetService(); });
}

TEST_F(BundleTest, thatFailsLeavesNothingBehindAndCanBeStartedAgain) {
    auto bundle = install("failing");
    const auto expectFailure = [&](const std::function<void()>& action, const std::string& cause) {
        const auto message = messageOf(action);
        for (const auto& part : {bundleFile("failing"), cause})
            EXPECT_NE(message.find(part), std::string::npos) << message;
        EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
        EXPECT_FALSE(bundle.GetBundleContext());
        EXPECT_TRUE(greeters().empty());
    };
    expectFailure([&] { bundle.Start(); }, "the licence has expired");
    bundle.Start();
    EXPECT_EQ(greeters().size(), 1u);
    expectFailure([&] { bundle.Stop(); }, "the licence server does not let go");
}

TEST_F(BundleTest, endsWithItsFramework) {
    auto bundle = install("greeter");
    bundle.Start();
    const auto registration = offer();
    const auto references = greeters();
    ASSERT_EQ(references.size(), 2u);
    const auto objects = context.GetServiceObjects(references[0]);

    stopFramework();
    EXPECT_FALSE(references[0]);
    EXPECT_EQ(objects.GetService(), nullptr);
    EXPECT_THROW(bundle.Start(), std::runtime_error);
    expectInvalidContext([&] { greeters(); });
    expectInvalidContext([&] { install("greeter"); });
    expectInvalidContext([&] { auto late = offer(); });

    framework.Start();
    EXPECT_FALSE(context);
    EXPECT_EQ(framework.GetBundleContext().GetBundles().size(), 1u);
    EXPECT_TRUE(framework.GetBundleContext().GetServiceReferences<Greeter>().empty());
}

TEST_F(ServiceTest, isOneObjectUnderAllItsInterfaces) {
    const auto registration = context.RegisterService<Greeter, Counter>(std::make_shared<SimpleGreeter>());
    const auto byType = context.GetServiceReference<Counter>();
    const auto byId = context.GetServiceReferences("tests::Greeter");
    ASSERT_EQ(byId.size(), 1u);
    EXPECT_TRUE(ServiceReference<Counter>(byId[0]) == byType);
    EXPECT_EQ(context.GetService(byType)->count(), 1);
    EXPECT_EQ(context.GetService(ServiceReference<Counter>(byId[0]))->count(), 2);
    EXPECT_EQ(context.GetService(registration.GetReference())->greet(), "hello");
    EXPECT_FALSE(ServiceReference<SimpleGreeter>(byType));
    EXPECT_EQ(context.GetServiceReferences("", "(objectclass=org.example.Counter/1.0)").size(), 1u);
}

TEST_F(ServiceTest, isGoneOnceUnregistered) {
    const auto object = std::make_shared<SimpleGreeter>();
    auto registration = context.RegisterService<Greeter>(object, {{"Colour", std::string("green")}});
    const auto reference = registration.GetReference();
    const auto objects = context.GetServiceObjects(reference);
    EXPECT_EQ(objects.GetService(), object);

    registration.Unregister();
    EXPECT_EQ(object.use_count(), 1);
    EXPECT_FALSE(reference);
    EXPECT_EQ(objects.GetService(), nullptr);
    EXPECT_TRUE(greeters().empty());
    EXPECT_THROW(context.GetService(reference), std::invalid_argument);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_EQ(any_cast<std::string>(reference.GetProperty("cOLOUR")), "green");

    const auto token = std::make_shared<int>();
    offer("hello", {{"token", token}}).Unregister();
    EXPECT_EQ(token.use_count(), 1);  // the registry has forgotten all of it
}

TEST_F(ServiceTest, areListedByRankingThenByAge) {
    const auto greetings = [&] {
        std::string texts;
        for (const auto& reference : greeters())
            texts += context.GetService(reference)->greet() + " ";
        return texts;
    };
    const auto first = offer("first");
    const auto low = offer("low", {{Constants::SERVICE_RANKING, -3}});
    const auto high = offer("high", {{Constants::SERVICE_RANKING, 7}});
    auto second = offer("second");
    EXPECT_EQ(greetings(), "high first second low ");
    EXPECT_TRUE(second.GetReference() < first.GetReference());
    second.Unregister();
    EXPECT_EQ(greetings(), "high first low ");
}

TEST_F(ServiceTest, whatCannotBeRegisteredOrAskedForIsRefused) {
    EXPECT_THROW(auto none = context.RegisterService<Greeter>(std::shared_ptr<Greeter>()), std::invalid_argument);
    EXPECT_THROW(auto twice = offer("hello", {{"size", 1}, {"Size", 2}}), std::runtime_error);
    EXPECT_EQ(messageOf([&] { context.GetServiceReferences<void>(); }),
              "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
}

TEST_F(ServiceTest, isFoundByFilter) {
    const auto registration = offer("hello", {{"Name", std::string("greeter")},
                                              {"star", std::string("a*b(c)")},
                                              {"size", 10},
                                              {"weight", 2.5},
                                              {"loud", true},
                                              {"tags", std::vector<std::string>{"a", "b"}}});
    for (const auto* matching :
         {"(name=greeter)", "( NAME =greeter)", "(name~=GREE TER)", "(name=*)", "(name=g*t*r)", "(name>=great)",
          "(star=a\\*b\\(c\\))", "(star=a*b(c))", "(size=10)", "(size<=10)", "(weight>=2.25)", "(loud=true)",
          "(tags=b)", "(|(size=9)(name=g*))", " ( & (!(absent=*)) (|(size=1)(size=10)) ) "})
        EXPECT_EQ(greeters(matching).size(), 1u) << matching;
    for (const auto* other :
         {"(name=Greeter)", "(absent=*)", "(name=g*x*r)", "(name=gre*eeter)", "(name<=great)", "(star=a\\*)",
          "(size>=11)", "(size=ten)", "(loud=false)", "(tags=c)", "(!(size=10))", "(&(name=g*)(size=9))"})
        EXPECT_TRUE(greeters(other).empty()) << other;
    for (const auto* malformed :
         {"name", "(", "(name=a", "(=a)", "(name:a)", "()", "(&)", "(!(a=1)(b=2))", "(a=1)(b=2)", "(&(a=1)", "(a=1\\"})
        EXPECT_THROW(greeters(malformed), std::invalid_argument) << malformed;
}

TEST_F(ServiceThreadsTest, registerListAndUnregister) {
    inThreads([&](int) {
        auto own = context;
        for (int round = 0; round < rounds; ++round) {
            auto registration = offer();
            const auto references = greeters();
            EXPECT_GE(references.size(), 1u);
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
    EXPECT_TRUE(greeters().empty());
}

TEST_F(ServiceThreadsTest, installStartAndStopOneBundle) {
    inThreads([&](int number) {
        auto bundle = install("greeter");
        for (int round = 0; round < rounds; ++round) {
            if (number % 2 == 0)
                bundle.Start();
            else
                bundle.Stop();
            EXPECT_LE(greeters().size(), 1u);
        }
    });
    EXPECT_EQ(context.GetBundles().size(), 2u);
    install("greeter").Start();
    EXPECT_EQ(greeters().size(), 1u);
}

TEST_F(ServiceThreadsTest, useTheContextUntilTheFrameworkStops) {
    inThreads([&](int number) {
        if (number == 0)
            framework.Stop();
        try {
            while (true)
                offer().Unregister();
        } catch (const std::logic_error&) {  // the framework was the one to unregister
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "The bundle context is no longer valid");
        }
    });
}

}  // namespace
}  // namespace tests
