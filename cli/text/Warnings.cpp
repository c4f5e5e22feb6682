#include "cli/text/Warnings.hpp"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/trivial.hpp>
#include <boost/make_shared.hpp>

#include "host/DiagnosticLogger.hpp"
#include "host/Text.hpp"

namespace cli {

namespace logging = boost::log;

namespace {

struct Kept {
    std::mutex mutex;
    std::vector<std::string> warnings;
    std::set<std::string> known;  // all that have been in `warnings`
    std::vector<std::string> ignoredFolders;
};

Kept& kept() {
    static Kept instance;
    return instance;
}

void keep(std::string text) {
    const std::lock_guard lock(kept().mutex);
    const auto names = [&](const std::string& folder) { return text.find(folder) != std::string::npos; };
    const auto& ignored = kept().ignoredFolders;
    if (std::none_of(ignored.begin(), ignored.end(), names) && kept().known.insert(text).second)
        kept().warnings.push_back(std::move(text));
}

/// The severities of the host are twice those of Boost.Log's trivial logger, from 2 on.
int toSeverity(logging::trivial::severity_level level) {
    return 2 * (level + 1);
}

class Sink : public logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding> {
public:
    Sink() {
        const char* const name = secure_getenv("PROJECT_METADATA_LOG");
        isWritten_ = name && *name;
        auto level = logging::trivial::warning;
        if (isWritten_ && std::string_view(name) == "off")
            least_ = std::numeric_limits<int>::max();
        else if (isWritten_ && logging::trivial::from_string(name, std::string_view(name).size(), level))
            least_ = toSeverity(level);
    }

    void consume(const logging::record_view& record) const {
        const int severity = logging::extract_or_default<int>("Severity", record, 0);
        if (severity < least_)
            return;
        auto text = logging::extract_or_default<std::string>("Message", record, std::string());
        if (!isWritten_) {
            keep(std::move(text));
            return;
        }
        const auto level = static_cast<logging::trivial::severity_level>(severity / 2 - 1);
        std::cerr << logging::trivial::to_string(level) << ": "
                  << logging::extract_or_default<std::string>("Channel", record, std::string()) << ": " << text << '\n';
    }

private:
    bool isWritten_;
    int least_ = static_cast<int>(host::Severity::warning);
};

}  // namespace

void collectWarnings() {
    kept();  // outlives the sink
    logging::core::get()->add_sink(
        boost::make_shared<logging::sinks::synchronous_sink<Sink>>(boost::make_shared<Sink>()));
}

std::size_t keepDamage(const std::vector<project::metadata::MetadataDamage>& damages) {
    std::set<host::Path> files;
    for (const project::metadata::MetadataDamage& damage : damages) {
        keep(damage.file.accessName() + " is damaged: " + host::toUtf8(damage.problem));
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
