#include "cli/text/Warnings.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <utility>

#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "host/DiagnosticLogger.hpp"
#include "project/metadata/FileUtilities.hpp"

namespace cli {

namespace {

struct Kept {
    std::mutex mutex;
    std::vector<Warning> warnings;
    std::set<std::pair<host::Path, std::u16string>> known;  // all that have been in `warnings`
    std::vector<std::u16string> ignoredFolders;
};

Kept& kept() {
    static Kept& instance = *new Kept;
    return instance;
}

void keep(Warning warning) {
    const std::lock_guard lock(kept().mutex);
    const auto isNamed = [&](const std::u16string& folder) {
        return (warning.file.empty() ? warning.text : warning.file.text()).find(folder) != std::u16string::npos;
    };
    const auto& ignored = kept().ignoredFolders;
    if (std::none_of(ignored.begin(), ignored.end(), isNamed) &&
        kept().known.emplace(warning.file, warning.text).second)
        kept().warnings.push_back(std::move(warning));
}

/// Tells at once what a person may want to do something about.
void tell(const std::string& text) {
    Progress::makeRoom();
    std::fprintf(stderr, "project-metadata: %s\n", escapeText(host::Path::fromAccessName(text).text()).c_str());
}

void keepOne(const pm::MetadataDamage& damage) {
    keep({damage.file, damage.problem, damage.isForeign});
}

}  // namespace

void collectWarnings() {
    const char* const level = secure_getenv("PROJECT_METADATA_LOG");
    if (level && *level)
        return;
    host::DiagnosticLogger::setSink([](const host::LogRecord& record) {
        if (record.severity >= host::Severity::warning)
            keep({{}, host::Path::fromAccessName(record.text).text()});
        else if (record.channel == pm::waitingChannel && isatty(STDERR_FILENO) == 1)
            tell(std::string(record.text));
    });
    pm::setDamageSink(keepOne);
}

std::size_t keepDamage(const std::vector<pm::MetadataDamage>& damages) {
    std::set<host::Path> files;
    for (const pm::MetadataDamage& damage : damages) {
        keepOne(damage);
        files.insert(damage.file);
    }
    return files.size();
}

void forgetDamage() {
    const std::lock_guard lock(kept().mutex);
    std::vector<Warning> others;
    for (Warning& warning : kept().warnings) {
        if (warning.file.empty())
            others.push_back(std::move(warning));
        else
            kept().known.erase({warning.file, warning.text});
    }
    kept().warnings = std::move(others);
}

void ignoreWarningsAbout(const host::Path& folder) {
    const std::lock_guard lock(kept().mutex);
    kept().ignoredFolders.push_back(folder.text() + u'/');
}

std::vector<Warning> takeWarnings() {
    const std::lock_guard lock(kept().mutex);
    return std::exchange(kept().warnings, {});
}

}  // namespace cli
