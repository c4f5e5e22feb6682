#include "cli/Arguments.hpp"

#include <map>

#include <CLI/CLI.hpp>

namespace cli {

namespace {

std::shared_ptr<const bool> addSharedFlag(CLI::App& app, const char* name, const char* description) {
    auto value = std::make_shared<bool>(false);
    app.add_flag(name, *value, description);
    return value;
}

}  // namespace

void addFlag(CLI::App& app, const char* names, bool& value, const char* description) {
    app.add_flag(names, value, description);
}

void addOption(CLI::App& app, const char* names, std::string& value, const char* description, const char* type,
               Need need) {
    app.add_option(names, value, description)->type_name(type)->required(need == Need::required);
}

void addOption(CLI::App& app, const char* names, std::optional<std::string>& value, const char* description,
               const char* type) {
    app.add_option(names, value, description)->type_name(type);
}

void addOption(CLI::App& app, const char* names, std::vector<std::string>& values, const char* description,
               const char* type) {
    app.add_option(names, values, description)->type_name(type)->allow_extra_args(false);
}

void addPairOption(CLI::App& app, const char* names, std::vector<std::string>& values, const char* description,
                   const char* types) {
    app.add_option(names, values, description)->type_name(types)->expected(2)->allow_extra_args(false);
}

void addStoreOptions(CLI::App& app, std::vector<std::string>& options) {
    addOption(app, "--option", options, "What the store has to know that makes the metadata", "NAME=VALUE");
    // After the other one, which replaces what is there.
    app.add_option_function<std::string>(
           "--service", [&options](const std::string& name) { options.push_back("service=" + name); },
           "The service by which the store's server is known; as --option service=NAME")
        ->type_name("NAME");
}

void addArgument(CLI::App& app, const char* name, std::string& value, const char* description, Need need) {
    app.add_option(name, value, description)->required(need == Need::required);
}

void OrderedOptions::addOption(const char* name, const char* description, const char* type) {
    options_.insert(
        app_.add_option(name, values_.emplace_back(), description)->type_name(type)->allow_extra_args(false));
}

void OrderedOptions::addFlag(const char* name, const char* description) {
    options_.insert(
        app_.add_flag(name, flags_.emplace_back(), description)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
}

std::vector<std::pair<std::string, std::string>> OrderedOptions::get() const {
    std::vector<std::pair<std::string, std::string>> given;
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app_.parse_order()) {
        if (options_.count(option) == 0)
            continue;
        const bool isFlag = option->get_items_expected_max() == 0;
        given.emplace_back(option->get_lnames().front(), isFlag ? "" : option->results().at(taken[option]++));
    }
    return given;
}

void setFooter(CLI::App& app, const char* text) {
    app.footer(text);
}

std::shared_ptr<const bool> addDryRun(CLI::App& app) {
    return addSharedFlag(app, "--dry-run", "Say what would be done, and do nothing");
}

std::shared_ptr<const bool> addJson(CLI::App& app) {
    return addSharedFlag(app, "--json", "Print JSON");
}

}  // namespace cli
