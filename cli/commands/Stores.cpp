/// project-metadata stores: which kinds of metadata stores there are.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cli/Command.hpp"
#include "cli/Errors.hpp"
#include "cli/Output.hpp"
#include "cli/SafeText.hpp"
#include "project/metadata/FactoryRegistry.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

Status listStores() {
    const auto defaultFactory = pm::getDefaultFactory();
    std::vector<std::pair<std::string, std::string>> lines;
    std::size_t width = 0;
    for (const auto& factory : pm::getRegisteredFactories()) {
        if (factory->isHidden())
            continue;
        const std::string mark = defaultFactory && factory->getName() == defaultFactory->getName() ? " (default)" : "";
        lines.emplace_back(escapeName(factory->getName()) + mark, escapeText(factory->getDescription()));
        width = std::max(width, lines.back().first.size());
    }
    if (lines.empty())
        throw CommandError(Status::failure, "There are no metadata stores; is the installation complete?");
    for (auto& [name, description] : lines) {
        name.resize(width + 2, ' ');
        print(name.append(description).append("\n"));
    }
    return Status::done;
}

Command::Action configure(CLI::App& /*app*/) {
    return listStores;
}

const Command command(Group::look, "stores", "List the kinds of metadata stores", configure);

}  // namespace

}  // namespace cli
