// Settings, the service framework, the log and stack traces.

#include "host/DiagnosticLogger.hpp"
#include "host/FileSystem.hpp"
#include "host/ServiceFramework.hpp"
#include "host/SettingsService.hpp"
#include "host/StackTrace.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <execinfo.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <mutex>

namespace host {

namespace {

using FrameworkPointer = std::shared_ptr<cppmicroservices::Framework>;

/// The settings of an application that lets nobody choose.
class FixedSettings : public SettingsGroup {
public:
    std::shared_ptr<const SettingsGroup> getGroup(const std::string& /*fullName*/) const override {
        return std::make_shared<FixedSettings>();
    }

    std::u16string getText(const std::string& key, const std::string& /*qualifier*/) const override {
        static const auto& values =
            *new std::map<std::string, std::u16string>{{"DefaultMetadataRoot", u"resources/project"},
                                                       {"DefaultMetadataManager", u"fixedPath"},
                                                       {"MakeReadOnlyMetadataWritable", u"no"}};
        return values.at(key);
    }
};

/// What there is one of in the process. Never destroyed: others may use it to the very end.
struct State {
    std::mutex mutex;
    std::shared_ptr<const SettingsGroup> settings = std::make_shared<FixedSettings>();
    FrameworkPointer framework = [] {
        auto started =
            std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
        started->Start();
        return started;
    }();
};

State& state() {
    static State& theState = *new State;
    return theState;
}

}  // namespace

SettingsGroup::~SettingsGroup() = default;

std::shared_ptr<const SettingsGroup> SettingsService::getSettingsRoot() {
    const std::lock_guard lock(state().mutex);
    return state().settings;
}

void SettingsService::setSettingsRoot(std::shared_ptr<const SettingsGroup> root) {
    const std::lock_guard lock(state().mutex);
    state().settings.swap(root);
}

FrameworkPointer ServiceFramework::getFramework() {
    const std::lock_guard lock(state().mutex);
    return state().framework;
}

void ServiceFramework::setFramework(FrameworkPointer framework) {
    const std::lock_guard lock(state().mutex);
    state().framework.swap(framework);
}

std::vector<cppmicroservices::Bundle> ServiceFramework::installBundles(const Path& relative) {
    std::vector<cppmicroservices::Bundle> bundles;
    const FrameworkPointer framework = getFramework();
    const Path folder = Path::fromAccessName(MY_PREFIX) / relative;
    if (!framework || !FileSystem::exists(folder))
        return bundles;
    std::vector<Path> files;
    for (DirectoryIterator entries(folder); entries.isOpen(); entries.increment())
        files.push_back(entries.fullPathName());
    std::sort(files.begin(), files.end());
    for (const Path& file : files) {
        const auto installed = framework->GetBundleContext().InstallBundles(file.accessName());
        bundles.insert(bundles.end(), installed.begin(), installed.end());
    }
    return bundles;
}

struct DiagnosticLogger::State {
    std::string channel;
};

DiagnosticLogger::DiagnosticLogger(const std::string& channel) : state_(new State{channel}) {}
DiagnosticLogger::~DiagnosticLogger() = default;

void DiagnosticLogger::log(Severity severity, std::string_view text) {
    if (severity >= Severity::warning)
        std::clog << (state_->channel + ": ").append(text) + '\n';
}

__attribute__((noinline)) StackTrace StackTrace::capture(std::size_t skippedFrames) {
    void* frames[2 * capacity];
    const auto count = static_cast<std::size_t>(backtrace(frames, 2 * capacity));
    const std::size_t first = std::min(skippedFrames + 1, count);  // without this function
    StackTrace trace;
    trace.size_ = std::min(count - first, capacity);
    std::copy_n(frames + first, trace.size_, trace.frames_.begin());
    return trace;
}

}  // namespace host
