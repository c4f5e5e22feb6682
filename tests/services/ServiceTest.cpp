// Registering services, finding them and getting at their objects.
#include <stdexcept>
#include <vector>

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/LDAPFilter.h"
#include "tests/services/Helpers.hpp"

namespace tests {

struct Counter {
    virtual ~Counter() = default;
    virtual int count() = 0;
};

struct Unrelated {};

}  // namespace tests

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(tests::Counter, "org.example.Counter/1.0")

namespace tests {
namespace {

using cppmicroservices::any_cast;
using cppmicroservices::LDAPFilter;
using cppmicroservices::ServiceException;
using cppmicroservices::ServiceProperties;
using cppmicroservices::ServiceReference;

namespace constants = cppmicroservices::Constants;

class ServiceTest : public StartedFramework {
protected:
    std::vector<std::string> greetings(const std::string& filter = {}) {
        std::vector<std::string> texts;
        for (const auto& reference : context.GetServiceReferences<Greeter>(filter)) {
            texts.push_back(context.GetServiceObjects(reference).GetService()->greet());
        }
        return texts;
    }
};

struct CountingGreeter final : Greeter, Counter {
    std::string greet() const override { return "hello"; }
    int count() override { return ++count_; }

private:
    int count_ = 0;
};

TEST_F(ServiceTest, isOneObjectUnderAllItsInterfaces) {
    EXPECT_EQ(us_service_interface_iid<Greeter>(), "tests::Greeter");
    EXPECT_EQ(us_service_interface_iid<Counter>(), "org.example.Counter/1.0");

    const auto registration = context.RegisterService<Greeter, Counter>(std::make_shared<CountingGreeter>());
    const auto byType = context.GetServiceReference<Counter>();
    const auto byId = context.GetServiceReferences("tests::Greeter");
    ASSERT_EQ(byId.size(), 1u);
    EXPECT_TRUE(byId[0] == byType);
    EXPECT_TRUE(registration.GetReference<Counter>() == byType);
    EXPECT_EQ(context.GetService(byType)->count(), 1);
    EXPECT_EQ(context.GetService(ServiceReference<Counter>(byId[0]))->count(), 2);
    EXPECT_EQ(context.GetServiceObjects(registration.GetReference()).GetService()->greet(), "hello");

    EXPECT_FALSE(ServiceReference<Unrelated>(byType));
    EXPECT_FALSE(context.GetServiceReference("tests::Other"));
    EXPECT_EQ(context.GetServiceReferences("", "(objectclass=org.example.Counter/1.0)").size(), 1u);
}

TEST_F(ServiceTest, isGoneOnceUnregistered) {
    auto object = std::make_shared<SimpleGreeter>();
    const std::weak_ptr<SimpleGreeter> watch = object;
    auto registration = context.RegisterService<Greeter>(object, {{"colour", std::string("green")}});
    const auto reference = registration.GetReference();
    const auto objects = context.GetServiceObjects(reference);
    auto held = objects.GetService();
    object.reset();

    registration.Unregister();
    EXPECT_FALSE(reference);
    EXPECT_FALSE(reference.GetBundle());
    EXPECT_EQ(objects.GetService(), nullptr);
    EXPECT_EQ(countGreeters(), 0u);
    EXPECT_THROW(context.GetService(reference), std::invalid_argument);
    EXPECT_THROW(context.GetServiceObjects(reference), std::invalid_argument);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_THROW(registration.GetReference(), std::logic_error);
    EXPECT_EQ(any_cast<std::string>(reference.GetProperty("colour")), "green");

    EXPECT_EQ(held->greet(), "hello");
    held.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(ServiceTest, leavesNothingInTheRegistry) {
    const auto token = std::make_shared<int>();
    context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>(), {{"token", token}}).Unregister();
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(ServiceTest, areListedByRankingThenByAge) {
    const auto rank = [](int ranking) { return ServiceProperties{{constants::SERVICE_RANKING, ranking}}; };
    const auto first = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>("first"));
    const auto low = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>("low"), rank(-3));
    const auto high = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>("high"), rank(7));
    auto second = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>("second"));
    EXPECT_EQ(greetings(), (std::vector<std::string>{"high", "first", "second", "low"}));
    EXPECT_TRUE(low.GetReference() < first.GetReference());
    EXPECT_TRUE(second.GetReference() < first.GetReference());
    EXPECT_FALSE(high.GetReference() < first.GetReference());
    EXPECT_TRUE(context.GetServiceReference<Greeter>() == high.GetReference());
    second.Unregister();
    EXPECT_EQ(greetings(), (std::vector<std::string>{"high", "first", "low"}));
}

TEST_F(ServiceTest, hasItsPropertiesInAnyCase) {
    const auto registration = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>(),
                                                               {{"Colour", std::string("green")}, {"size", 3}});
    const auto reference = registration.GetReference();
    EXPECT_EQ(any_cast<std::string>(reference.GetProperty("cOLOUR")), "green");
    EXPECT_EQ(any_cast<int>(reference.GetProperty("size")), 3);
    EXPECT_TRUE(reference.GetProperty("absent").Empty());
    EXPECT_THROW(any_cast<long>(reference.GetProperty("size")), std::bad_cast);
    EXPECT_EQ(any_cast<std::vector<std::string>>(reference.GetProperty(constants::OBJECTCLASS)),
              std::vector<std::string>{"tests::Greeter"});
    EXPECT_GT(any_cast<long>(reference.GetProperty(constants::SERVICE_ID)), 0);
}

TEST_F(ServiceTest, whatCannotBeRegisteredOrAskedForIsRefused) {
    const auto refuse = [&](const auto& object, const ServiceProperties& properties = {}) {
        auto registration = context.RegisterService<Greeter>(object, properties);
    };
    EXPECT_THROW(refuse(std::shared_ptr<SimpleGreeter>()), std::invalid_argument);
    EXPECT_THROW(refuse(std::make_shared<SimpleGreeter>(), {{"size", 1}, {"Size", 2}}), std::runtime_error);
    EXPECT_THROW(auto none = context.RegisterService(nullptr), std::invalid_argument);
    EXPECT_EQ(countGreeters(), 0u);

    const std::string noId = "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro";
    EXPECT_EQ(messageOf<ServiceException>([&] { context.GetServiceReferences<void>(); }), noId);
    EXPECT_EQ(messageOf<ServiceException>([&] { context.GetServiceReference<void>(); }), noId);
    EXPECT_THROW(context.GetService(ServiceReference<Greeter>()), std::invalid_argument);
    EXPECT_THROW(context.GetServiceObjects(ServiceReference<Greeter>()), std::invalid_argument);
}

TEST_F(ServiceTest, isFoundByFilter) {
    const auto registration = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>(),
                                                               {{"name", std::string("greeter")},
                                                                {"star", std::string("a*b(c)")},
                                                                {"size", 10},
                                                                {"weight", 2.5},
                                                                {"loud", true},
                                                                {"tags", std::vector<std::string>{"a", "b"}}});
    const std::vector<std::pair<std::string, bool>> cases = {
        {"(name=greeter)", true},
        {"(NAME=greeter)", true},
        {"( name =greeter)", true},
        {"(name=Greeter)", false},
        {"(name~=GREE TER)", true},
        {"(name=*)", true},
        {"(absent=*)", false},
        {"(name=g*r)", true},
        {"(name=*eet*)", true},
        {"(name=g*t*r)", true},
        {"(name=g*x*r)", false},
        {"(name=gre*eeter)", false},
        {"(name>=great)", true},
        {"(name<=great)", false},
        {"(star=a\\*b\\(c\\))", true},
        {"(star=a*b(c))", true},
        {"(star=a\\*)", false},
        {"(size=10)", true},
        {"(size>=11)", false},
        {"(size<=10)", true},
        {"(size=ten)", false},
        {"(weight>=2.25)", true},
        {"(loud=true)", true},
        {"(loud=false)", false},
        {"(tags=b)", true},
        {"(tags=c)", false},
        {"(!(size=10))", false},
        {"(&(name=g*)(size=10))", true},
        {"(&(name=g*)(size=9))", false},
        {"(|(size=9)(name=g*))", true},
        {" ( & (!(absent=*)) (|(size=1)(size=10)) ) ", true},
    };
    for (const auto& [filter, expected] : cases) {
        EXPECT_EQ(context.GetServiceReferences<Greeter>(filter).size(), expected ? 1u : 0u) << filter;
        EXPECT_EQ(LDAPFilter(filter).Match(registration.GetReference()), expected) << filter;
        // What a filter says of itself is a filter that says the same.
        EXPECT_EQ(LDAPFilter(LDAPFilter(filter).ToString()), LDAPFilter(filter)) << filter;
    }
    EXPECT_EQ(LDAPFilter().ToString(), "");
    EXPECT_FALSE(LDAPFilter().Match(registration.GetReference()));
    EXPECT_EQ(LDAPFilter(" ( & (a=1) (b =x\\*y*) ) ").ToString(), "(&(a=1)(b=x\\*y*))");
}

TEST_F(ServiceTest, malformedFiltersAreRefused) {
    const auto registration = context.RegisterService<Greeter>(std::make_shared<SimpleGreeter>());
    for (const auto* filter : {"name", "(", "(name", "(name=", "(name=a", "(=a)", "(name:a)", "()", "(&)",
                               "(!(a=1)(b=2))", "(a=1)(b=2)", "(&(a=1)", "(a=1\\"}) {
        EXPECT_THROW(context.GetServiceReferences<Greeter>(filter), std::invalid_argument) << filter;
        EXPECT_THROW(LDAPFilter{filter}, std::invalid_argument) << filter;
    }
}

}  // namespace
}  // namespace tests
