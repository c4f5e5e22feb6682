/// project-metadata uuid: gives a project a UUID.

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "cli/Command.hpp"
#include "cli/Errors.hpp"
#include "cli/Output.hpp"
#include "cli/Positionals.hpp"
#include "cli/Project.hpp"
#include "cli/SafeText.hpp"
#include "host/Text.hpp"
#include "project/metadata/Uuid.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

/// Whether `text` has the text form of RFC 4122, in digits of either case.
bool isUuid(std::string_view text) {
    constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    constexpr std::string_view digits = "0123456789abcdefABCDEF";
    return std::equal(text.begin(), text.end(), form.begin(), form.end(), [digits](char given, char expected) {
        return expected == '-' ? given == '-' : digits.find(given) != std::string_view::npos;
    });
}

/// @param given the UUID in text form; without a value, a new one
Status assign(const host::Path& root, const std::optional<std::string>& given) {
    if (given && !isUuid(*given)) {
        throw CommandError(Status::usage, '"' + *given +
                                              "\" is no UUID, which has hexadecimal digits in groups of 8, 4, 4, 4 "
                                              "and 12, joined by \"-\"");
    }
    requireCoreFile(root);
    const std::u16string uuid = given ? host::fromUtf8(*given) : pm::generateUUID();
    const host::Path marker = pm::assignUuid(root, uuid);
    print(host::toUtf8(uuid) + "  " + escapeName(marker.text()) + '\n');
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(app, {{"UUID", "The UUID; without, a new random one", Positional::Kind::optional}});
    return [positionals] {
        const auto [root, texts] = positionals.get();
        return assign(root, texts.empty() ? std::nullopt : std::optional(texts[0]));
    };
}

const Command command(Group::change, "uuid", "Give a project a UUID", configure);

}  // namespace

}  // namespace cli
