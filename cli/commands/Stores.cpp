/// project-metadata stores: which kinds of metadata stores there are.

#include <algorithm>
#include <string>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/SafeText.hpp"
#include "project/metadata/FactoryRegistry.hpp"

namespace cli {

namespace {

struct Store {
    std::u16string name;
    std::u16string description;
    bool isDefault;
};

/// All that users may choose.
std::vector<Store> listStores() {
    const auto defaultFactory = pm::getDefaultFactory();
    std::vector<Store> stores;
    for (const auto& factory : pm::getRegisteredFactories()) {
        const std::u16string name = factory->getName();
        if (!factory->isHidden())
            stores.push_back({name, factory->getDescription(), defaultFactory && name == defaultFactory->getName()});
    }
    if (stores.empty())
        throw CommandError(Status::failure, "There are no metadata stores; is the installation complete?");
    return stores;
}

void printText(const std::vector<Store>& stores) {
    const auto label = [](const Store& store) {
        return escapeName(store.name) + (store.isDefault ? " (default)" : "");
    };
    std::size_t width = 0;
    for (const Store& store : stores)
        width = std::max(width, label(store).size());
    for (const Store& store : stores) {
        const std::string gap(width + 2 - label(store).size(), ' ');
        print(label(store) + gap + escapeText(store.description) + '\n');
    }
}

Json describe(const std::vector<Store>& stores) {
    Json json = Json::array();
    for (const Store& store : stores) {
        json.push_back(
            {{"name", toJson(store.name)}, {"description", toJson(store.description)}, {"default", store.isDefault}});
    }
    return json;
}

Command::Action configure(CLI::App& app) {
    return [json = addJson(app)] {
        const std::vector<Store> stores = listStores();
        if (*json)
            printJson(describe(stores));
        else
            printText(stores);
        return Status::done;
    };
}

const Command command(Group::look, "stores", "List the kinds of metadata stores", configure);

}  // namespace

}  // namespace cli
