#include "cli/text/Warnings.hpp"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <set>
#include <utility>

#include "host/DiagnosticLogger.hpp"
#include "host/Text.hpp"

namespace cli {

namespace {

struct Kept {
    std::mutex mutex;
    std::vector<std::string> warnings;
    std::set<std::string> known;  // all that have been in `warnings`
    std::vector<std::string> ignoredFolders;
};

Kept& kept() {
    static Kept& instance = *new Kept;
    return instance;
}

void keep(std::string text) {
    const std::lock_guard lock(kept().mutex);
    const auto names = [&](const std::string& folder) { return text.find(folder) != std::string::npos; };
    const auto& ignored = kept().ignoredFolders;
    if (std::none_of(ignored.begin(), ignored.end(), names) && kept().known.insert(text).second)
        kept().warnings.push_back(std::move(text));
}

std::string describe(const project::metadata::MetadataDamage& damage) {
    return damage.file.accessName() + " is damaged: " + host::toUtf8(damage.problem);
}

}  // namespace

void collectWarnings() {
    const char* const level = secure_getenv("PROJECT_METADATA_LOG");
    if (level && *level)
        return;
    host::DiagnosticLogger::setSink([](const host::LogRecord& record) {
        if (record.severity >= host::Severity::warning)
            keep(std::string(record.text));
    });
    project::metadata::setDamageSink([](const project::metadata::MetadataDamage& damage) { keep(describe(damage)); });
}

std::size_t keepDamage(const std::vector<project::metadata::MetadataDamage>& damages) {
    std::set<host::Path> files;
    for (const project::metadata::MetadataDamage& damage : damages) {
        keep(describe(damage));
        files.insert(damage.file);
    }
    return files.size();
}

void ignoreWarningsAbout(const host::Path& folder) {
    const std::lock_guard lock(kept().mutex);
    kept().ignoredFolders.push_back(folder.accessName() + '/');
}

std::vector<std::string> takeWarnings() {
    const std::lock_guard lock(kept().mutex);
    return std::exchange(kept().warnings, {});
}

}  // namespace cli
