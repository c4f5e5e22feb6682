/// A framework of its own, made and started when it is first asked for, and the bundles below the prefix under which
/// this library is installed, or the one that the environment variable PROJECT_METADATA_PREFIX names. A privileged
/// (setuid) process ignores its environment.
#include "host/ServiceFramework.hpp"

#include "embedded/host/NativePath.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

namespace host {

namespace fs = std::filesystem;

namespace {

using FrameworkPointer = std::shared_ptr<cppmicroservices::Framework>;

struct State {
    std::mutex mutex;
    /// Without a value until somebody asks for the framework or sets it.
    std::optional<FrameworkPointer> framework;
};

State& theState() {
    // Never destroyed: at the end of the process the framework would stop bundles whose own objects are gone by then.
    static State& state = *new State;
    return state;
}

FrameworkPointer startFramework() {
    auto framework = std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
    framework->Init();
    framework->Start();
    return framework;
}

/// The file of this library under the name by which the program found it. Taken while it is loaded, since that name is
/// relative to the current folder if the program's search path is.
fs::path findThisLibrary() {
    Dl_info info{};
    std::error_code code;
    if (dladdr(reinterpret_cast<const void*>(&findThisLibrary), &info) == 0)
        return {};
    return fs::absolute(info.dli_fname, code);
}

const fs::path& thisLibrary = *new fs::path(findThisLibrary());

/// The folder that is as far above `library` as the prefix of an installation is.
Path getPrefix(const fs::path& library) {
    fs::path folder = library.parent_path();
    for (const fs::path& element : fs::path(PROJECT_METADATA_LIBRARY_FOLDER)) {
        if (!element.empty() && element != ".")
            folder = folder.parent_path();
    }
    return Path::fromAccessName(folder.native());
}

/// Where the installation may be. Symbolic links may lead to the whole of it or to single files, so that the name of
/// this library and the file behind it can have different prefixes.
std::vector<Path> getPrefixes() {
    if (const char* prefix = secure_getenv("PROJECT_METADATA_PREFIX"); prefix && *prefix)
        return {FileUtils::makeAbsolute(Path::fromAccessName(prefix))};
    std::vector<Path> prefixes{getPrefix(thisLibrary)};
    std::error_code code;
    const fs::path file = fs::canonical(thisLibrary, code);
    if (!code)
        prefixes.push_back(getPrefix(file));
    return prefixes;
}

std::vector<Path> listBundles(const Path& relative) {
    std::vector<Path> files;
    for (const Path& prefix : getPrefixes()) {
        const Path folder = prefix / relative;
        if (!FileSystem::exists(folder))
            continue;
        for (DirectoryIterator entries(folder); entries.isOpen(); entries.increment()) {
            const Path file = entries.fullPathName();
            const fs::path native = toNative(file);
            if (native.extension() == ".so" && fs::is_regular_file(native))
                files.push_back(file);
        }
        break;
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

FrameworkPointer ServiceFramework::getFramework() {
    State& state = theState();
    const std::lock_guard lock(state.mutex);
    if (!state.framework)
        state.framework = startFramework();
    return *state.framework;
}

void ServiceFramework::setFramework(FrameworkPointer framework) {
    State& state = theState();
    std::optional<FrameworkPointer> before(std::move(framework));
    // The framework that was there is released only after the lock is.
    const std::lock_guard lock(state.mutex);
    state.framework.swap(before);
}

std::vector<cppmicroservices::Bundle> ServiceFramework::installBundles(const Path& relative) {
    std::vector<cppmicroservices::Bundle> bundles;
    const FrameworkPointer framework = getFramework();
    if (!framework)
        return bundles;
    for (const Path& file : listBundles(relative)) {
        const auto installed = framework->GetBundleContext().InstallBundles(file.accessName());
        bundles.insert(bundles.end(), installed.begin(), installed.end());
    }
    return bundles;
}

}  // namespace host
