/// A framework of its own, made and started when it is first asked for, and the bundles of three places:
///
///     project_metadata/VERSION beside this library
///     the same below the prefix of an installation that the environment variable PROJECT_METADATA_PREFIX names
///     project-metadata in the user's folder for data, which is found by the XDG Base Directory rules
///
/// VERSION is that of the binary interface, since a plug-in belongs to one.
///
/// Of several bundles with one file name, the first counts. A privileged (setuid) process ignores its environment, and
/// so knows the first place only.
#include "host/ServiceFramework.hpp"

#include "embedded/host/NativePath.hpp"
#include "host/DiagnosticLogger.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
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

/// Where plug-ins belong that are installed with `library`.
Path getPluginPrefix(const fs::path& library) {
    return Path::fromAccessName((library.parent_path() / PROJECT_METADATA_PLUGIN_PREFIX).native());
}

std::optional<Path> getAbsolutePath(const char* name) {
    const char* value = secure_getenv(name);
    if (!value || !*value)
        return {};
    return FileUtils::makeAbsolute(Path::fromAccessName(value));
}

/// `relative` in the installation. Symbolic links may lead to the whole of that or to single files, so that the name of
/// this library and the file behind it can be in different folders; the first with plug-ins beside it counts.
Path getInstalledFolder(const Path& relative) {
    const Path folder = getPluginPrefix(thisLibrary) / relative;
    std::error_code code;
    const fs::path file = fs::canonical(thisLibrary, code);
    return code || FileSystem::exists(folder) ? folder : getPluginPrefix(file) / relative;
}

std::vector<Path> getBundleFolders(const Path& relative) {
    std::vector<Path> folders{getInstalledFolder(relative)};
    if (const auto prefix = getAbsolutePath("PROJECT_METADATA_PREFIX"))
        folders.push_back(*prefix / Path::fromAccessName(PROJECT_METADATA_INSTALLED_PLUGIN_PREFIX) / relative);
    const Path usersOwn = Path(u"project-metadata") / relative;
    if (const auto data = getAbsolutePath("XDG_DATA_HOME"))
        folders.push_back(*data / usersOwn);
    else if (const auto home = getAbsolutePath("HOME"))
        folders.push_back(*home / u".local/share" / usersOwn);
    return folders;
}

/// The bundles of a folder are added to `bundles`, by their file names. @return what is said about that
std::string addBundles(const Path& folder, std::map<std::string, Path>& bundles) {
    const std::string name = '"' + folder.accessName() + '"';
    if (!FileSystem::exists(folder))
        return name + ", which does not exist";
    for (DirectoryIterator entries(folder); entries.isOpen(); entries.increment()) {
        const Path file = entries.fullPathName();
        const fs::path native = toNative(file);
        if (native.extension() == ".so" && fs::is_regular_file(native))
            bundles.emplace(native.filename(), file);
    }
    return name + ", where no file ends with \".so\"";
}

/// The bundles by their file names. None at all is worth a warning: what needs them will then seem to be missing.
std::map<std::string, Path> listBundles(const Path& relative) {
    std::map<std::string, Path> bundles;
    std::string report;
    for (const Path& folder : getBundleFolders(relative))
        report += (report.empty() ? "" : "; ") + addBundles(folder, bundles);
    if (bundles.empty())
        DiagnosticLogger("host").log(Severity::warning, "There are no plug-ins. They were looked for in " + report);
    return bundles;
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
    for (const auto& bundle : listBundles(relative)) {
        const auto installed = framework->GetBundleContext().InstallBundles(bundle.second.accessName());
        bundles.insert(bundles.end(), installed.begin(), installed.end());
    }
    return bundles;
}

}  // namespace host
