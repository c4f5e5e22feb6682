// Frameworks and bundles: from installation to the end.
#include <algorithm>
#include <stdexcept>

#include "tests/services/Helpers.hpp"

namespace tests {
namespace {

using cppmicroservices::Bundle;
using cppmicroservices::BundleContext;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;
using cppmicroservices::FrameworkFactory;

class BundleTest : public StartedFramework {};

TEST(FrameworkTest, hasAContextFromInitToStop) {
    auto framework = FrameworkFactory().NewFramework();
    EXPECT_FALSE(framework.GetBundleContext());
    framework.Init();
    const auto context = framework.GetBundleContext();
    EXPECT_TRUE(context);
    EXPECT_EQ(context.GetBundle(), framework);
    framework.Start();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_EQ(framework.GetBundleContext(), context);
    EXPECT_EQ(framework.WaitForStop(std::chrono::milliseconds(1)).GetType(), FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);

    framework.Stop();
    EXPECT_EQ(framework.WaitForStop(std::chrono::milliseconds::zero()).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    EXPECT_FALSE(context);
    EXPECT_FALSE(framework.GetBundleContext());
}

TEST(FrameworkTest, whatWasThereEndsWithTheStop) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto context = framework.GetBundleContext();
    auto bundle = context.InstallBundles(bundleFile("greeter")).at(0);
    bundle.Start();
    const auto registration = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
    const auto bundled = bundle.GetBundleContext().GetServiceReferences<Greeter>().at(0);
    const auto objects = context.GetServiceObjects(bundled);

    stopAndWait(framework);
    EXPECT_FALSE(bundled);
    EXPECT_EQ(objects.GetService(), nullptr);
    EXPECT_THROW(bundle.Start(), std::runtime_error);
    const std::string expected = "The bundle context is no longer valid";
    EXPECT_EQ(messageOf<std::runtime_error>([&] { context.GetServiceReferences<Greeter>(); }), expected);
    EXPECT_EQ(messageOf<std::runtime_error>([&] { context.InstallBundles(bundleFile("greeter")); }), expected);
    EXPECT_EQ(messageOf<std::runtime_error>(
                  [&] { auto late = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>()); }),
              expected);

    framework.Start();
    EXPECT_FALSE(context);
    EXPECT_EQ(framework.GetBundleContext().GetBundles().size(), 1u);
    EXPECT_TRUE(framework.GetBundleContext().GetServiceReferences<Greeter>().empty());
    stopAndWait(framework);
}

TEST_F(BundleTest, isInstalledOncePerLocation) {
    const auto bundle = install("greeter");
    EXPECT_EQ(bundle.GetSymbolicName(), "tests_greeter");
    EXPECT_EQ(bundle.GetLocation(), bundleFile("greeter"));
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_GT(bundle.GetBundleId(), 0);
    EXPECT_FALSE(bundle.GetBundleContext());

    EXPECT_EQ(install("greeter"), bundle);
    EXPECT_EQ(context.GetBundle(bundle.GetBundleId()), bundle);
    EXPECT_EQ(context.GetBundles(bundle.GetLocation()), std::vector{bundle});
    EXPECT_EQ(context.GetBundles().size(), 2u);
    EXPECT_NE(install("failing"), bundle);
}

TEST_F(BundleTest, whatIsNoBundleIsRefusedByName) {
    for (const auto* name : {"absent", "text", "nobundle"}) {
        const auto message = messageOf<std::runtime_error>([&] { install(name); });
        EXPECT_NE(message.find(bundleFile(name)), std::string::npos) << message;
    }
    // The same bundle from a second place would get the first one's context.
    install("greeter");
    const auto message = messageOf<std::runtime_error>([&] { install("copy"); });
    EXPECT_NE(message.find(bundleFile("copy")), std::string::npos) << message;
    EXPECT_EQ(context.GetBundles().size(), 2u);
}

TEST_F(BundleTest, offersItsServiceWhileItIsActive) {
    auto bundle = install("greeter");
    EXPECT_EQ(countGreeters(), 0u);
    bundle.Start();
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    ASSERT_EQ(countGreeters(), 1u);
    const auto reference = context.GetServiceReference<Greeter>();
    EXPECT_EQ(reference.GetBundle(), bundle);
    const auto greeter = context.GetService(reference);
    EXPECT_EQ(greeter->greet(), "hello from a bundle");
    EXPECT_EQ(greeter->bundleName(), "tests_greeter");

    const auto bundleContext = bundle.GetBundleContext();
    bundle.Stop();
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(bundleContext);
    EXPECT_FALSE(reference);
    EXPECT_EQ(countGreeters(), 0u);
    // Whoever still holds the object can use it.
    EXPECT_EQ(greeter->greet(), "hello from a bundle");
    EXPECT_EQ(greeter->bundleName(), "");

    bundle.Start();
    EXPECT_EQ(countGreeters(), 1u);
}

TEST_F(BundleTest, canNotUseItsContextOnceStopped) {
    const auto registration = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
    auto bundle = install("greeter");
    bundle.Start();
    auto own = bundle.GetBundleContext();
    const auto objects = own.GetServiceObjects(registration.GetReference());
    EXPECT_NE(objects.GetService(), nullptr);
    bundle.Stop();
    const std::string expected = "The bundle context is no longer valid";
    EXPECT_EQ(messageOf<std::runtime_error>([&] { own.GetServiceReferences<Greeter>(); }), expected);
    EXPECT_EQ(messageOf<std::runtime_error>([&] { own.GetService(registration.GetReference()); }), expected);
    EXPECT_EQ(messageOf<std::runtime_error>([&] { objects.GetService(); }), expected);
}

TEST_F(BundleTest, thatFailsToStartLeavesNothingBehind) {
    auto bundle = install("failing");
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto message = messageOf<std::runtime_error>([&] { bundle.Start(); });
        for (const auto* part : {"tests_failing", "failing.so", "the licence has expired"}) {
            EXPECT_NE(message.find(part), std::string::npos) << message;
        }
        EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
        EXPECT_FALSE(bundle.GetBundleContext());
        EXPECT_EQ(countGreeters(), 0u);
    }
}

TEST_F(BundleTest, thatFailsToStopIsStopped) {
    auto bundle = install("stubborn");
    bundle.Start();
    EXPECT_EQ(countGreeters(), 1u);
    const auto message = messageOf<std::runtime_error>([&] { bundle.Stop(); });
    EXPECT_NE(message.find("the licence server does not let go"), std::string::npos) << message;
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_EQ(countGreeters(), 0u);
}

TEST_F(BundleTest, canBeUninstalledAndInstalledAgain) {
    auto bundle = install("greeter");
    bundle.Start();
    bundle.Uninstall();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_UNINSTALLED);
    EXPECT_EQ(countGreeters(), 0u);
    EXPECT_TRUE(context.GetBundles(bundle.GetLocation()).empty());
    EXPECT_THROW(bundle.Start(), std::logic_error);
    EXPECT_THROW(bundle.Uninstall(), std::logic_error);

    auto again = install("greeter");
    EXPECT_NE(again, bundle);
    again.Start();
    EXPECT_EQ(countGreeters(), 1u);
}

TEST_F(BundleTest, invalidHandlesAndTheSystemBundleSayWhatIsWrong) {
    EXPECT_FALSE(Bundle());
    EXPECT_THROW(Bundle().GetSymbolicName(), std::invalid_argument);
    EXPECT_FALSE(context.GetBundle(4711));
    EXPECT_EQ(messageOf<std::runtime_error>([] { BundleContext().GetBundles(); }),
              "The bundle context is no longer valid");

    EXPECT_EQ(Framework(context.GetBundle(0)), framework);
    EXPECT_THROW(Framework{install("greeter")}, std::logic_error);
    EXPECT_THROW(framework.Uninstall(), std::runtime_error);
}

}  // namespace
}  // namespace tests
