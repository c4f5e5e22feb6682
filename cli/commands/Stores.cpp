/// project-metadata stores: which kinds of metadata stores there are.

#include <algorithm>

#include "cli/Command.hpp"
#include "project/metadata/FactoryRegistry.hpp"

namespace cli {

namespace {

/// @param stores all that users may choose
void printText(const std::vector<std::shared_ptr<pm::MetadataManagerFactory>>& stores,
               const std::optional<std::u16string>& usual) {
    const auto label = [&](const auto& store) {
        return escapeName(store->getName()) + (store->getName() == usual ? " (default)" : "");
    };
    std::size_t width = 0;
    for (const auto& store : stores)
        width = std::max(width, label(store).size());
    for (const auto& store : stores) {
        const std::string gap(width + 2 - label(store).size(), ' ');
        print(label(store) + gap + escapeText(store->getDescription()) + '\n');
    }
}

Status listStores(bool isJson) {
    const auto defaultFactory = pm::getDefaultFactory();
    const auto usual = defaultFactory ? std::optional(defaultFactory->getName()) : std::nullopt;
    auto stores = pm::getRegisteredFactories();
    const auto isHidden = [](const auto& factory) { return factory->isHidden(); };
    stores.erase(std::remove_if(stores.begin(), stores.end(), isHidden), stores.end());
    if (stores.empty())
        throw CommandError(Status::failure, "There are no metadata stores; is the installation complete?");
    Json json = Json::array();
    for (const auto& store : stores) {
        json.push_back({{"name", toJson(store->getName())},
                        {"description", toJson(store->getDescription())},
                        {"default", store->getName() == usual}});
    }
    if (isJson)
        printJson(json);
    else
        printText(stores, usual);
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    return [json = addJson(app)] { return listStores(*json); };
}

const Command command(Group::look, "stores", "List the kinds of metadata stores", configure);

}  // namespace

}  // namespace cli
