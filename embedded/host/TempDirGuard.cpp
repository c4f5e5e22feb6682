#include "host/TempDirGuard.hpp"

#include "embedded/host/NativePath.hpp"
#include "host/DiagnosticLogger.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <exception>
#include <random>

namespace host {

namespace {

/// 100 random bits as twenty characters that are safe in every file name.
std::u16string makeRandomName() {
    constexpr char16_t letters[] = u"abcdefghijklmnopqrstuvwxyz234567";
    std::random_device random;
    std::uniform_int_distribution<std::size_t> anyLetter(0, 31);
    std::u16string name;
    for (int i = 0; i < 20; ++i)
        name += letters[anyLetter(random)];
    return name;
}

}  // namespace

TempDirGuard::TempDirGuard(const std::u16string& parent, const std::u16string& prefix, const std::u16string& suffix) {
    // A relative name would mean another folder once the process changes its current one.
    const Path folder = FileUtils::makeAbsolute(parent);
    constexpr int attempts = 100;
    for (int attempt = 1;; ++attempt) {
        name_ = (folder / Path(prefix + makeRandomName().append(suffix))).text();
        if (mkdir(toNative(name_).c_str(), S_IRWXU) == 0)
            return;
        if (errno != EEXIST || attempt == attempts)
            throwSystemError(name_, errno);
    }
}

TempDirGuard::~TempDirGuard() {
    try {
        FileSystem::remove_all(name_);
    } catch (const std::exception& error) {
        try {
            DiagnosticLogger("host").log(Severity::warning,
                                         std::string("A temporary folder stays on the disk: ") + error.what());
        } catch (...) {
            // There is nobody left to tell.
        }
    }
}

}  // namespace host
