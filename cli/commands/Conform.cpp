/// project-metadata conform: whether the stores of a bundle keep the contract of a store.

#include <algorithm>
#include <exception>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceReference.h>
#include "cli/Command.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/ServiceFramework.hpp"
#include "operations/SettingsOverride.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "store_testing/StoreContract.hpp"

namespace cli {

namespace {

namespace testing = project::store_testing;
using Factories = std::vector<std::shared_ptr<pm::MetadataManagerFactory>>;

/// Starts the bundle in `file`. @return what it registers then
Factories loadFactories(const host::Path& file) {
    const auto framework = host::ServiceFramework::getFramework();
    if (!framework)
        throw CommandError(Status::failure, "There is no service framework to start " + quoted(file) + " in");
    cppmicroservices::BundleContext context = framework->GetBundleContext();
    std::vector<cppmicroservices::Bundle> bundles;
    try {
        bundles = context.InstallBundles(host::FileUtils::makeAbsolute(file).accessName());
        for (cppmicroservices::Bundle& bundle : bundles)
            bundle.Start();
    } catch (...) {
        std::throw_with_nested(CommandError(Status::failure, quoted(file) + " cannot be started as a bundle"));
    }
    Factories factories;
    for (const auto& reference : context.GetServiceReferences<pm::MetadataManagerFactory>()) {
        if (std::find(bundles.begin(), bundles.end(), reference.GetBundle()) != bundles.end())
            factories.push_back(context.GetService(reference));
    }
    return factories;
}

/// How many rules a store keeps and breaks.
struct Count {
    int passed = 0;
    int failed = 0;
};

/// The rules of the given names, all without one.
std::vector<testing::Rule> chooseRules(const std::vector<std::string>& names) {
    if (names.empty())
        return testing::getRules();
    std::vector<testing::Rule> rules;
    for (const std::string& name : names) {
        const testing::Rule* const rule = testing::findRule(name);
        if (!rule)
            throw CommandError(Status::usage, "There is no rule \"" + escapeText(host::fromUtf8(name)) + '"');
        rules.push_back(*rule);
    }
    return rules;
}

/// @param list where the outcomes go with --json; null without
void checkRules(const std::shared_ptr<pm::MetadataManagerFactory>& factory, const std::vector<testing::Rule>& rules,
                Count& count, JsonList* list) {
    for (const testing::Rule& rule : rules) {
        const auto breach = testing::findBreach(rule, [&] { return factory; });
        const std::string name = rule.name;
        const std::u16string message = host::fromUtf8(breach.value_or(""));
        if (list) {
            list->add({{"store", toJson(factory->getName())},
                       {"rule", name},
                       {"outcome", breach ? "failed" : "passed"},
                       {"message", breach ? toJson(message) : Json(nullptr)}});
        } else {
            print(breach ? "FAILED  " + name + ": " + escapeText(message) + '\n' : "passed  " + name + '\n');
        }
        flushOutput();
        ++(breach ? count.failed : count.passed);
    }
}

Status conform(const host::Path& file, const std::vector<std::string>& ruleNames, bool isJson) {
    const auto rules = chooseRules(ruleNames);
    if (!host::FileSystem::exists(file))
        throw CommandError(Status::failure, "There is no file " + quoted(file));
    const Factories factories = loadFactories(file);
    if (factories.empty())
        throw CommandError(Status::failure, "The bundle " + quoted(file) + " registers no metadata store");
    // The user's choice of a folder has no say in what a store does.
    const SettingsOverride usual("korvex.project.creation", "DefaultMetadataRoot", pm::getSelectableRoots().front());
    Count count;
    JsonList list;
    for (const auto& factory : factories) {
        if (factories.size() > 1 && !isJson)
            print("The store \"" + escapeName(factory->getName()) + "\":\n");
        checkRules(factory, rules, count, isJson ? &list : nullptr);
    }
    if (isJson)
        list.end();
    else
        print(std::to_string(count.passed) + " passed, " + std::to_string(count.failed) + " failed\n");
    return count.failed == 0 ? Status::done : Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const auto file = std::make_shared<std::string>();
    addArgument(app, "BUNDLE", *file, "The bundle's file, a shared object", Need::required);
    const auto rules = std::make_shared<std::vector<std::string>>();
    addOption(app, "--rule", *rules, "Check this rule only; may be repeated", "NAME");
    return [file, rules, isJson = addJson(app)] { return conform(host::Path::fromAccessName(*file), *rules, *isJson); };
}

const Command command(Group::trust, "conform", "Check whether the stores of a plug-in keep the contract", configure);

}  // namespace

}  // namespace cli
