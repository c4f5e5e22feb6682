/// A scratch folder that lives as long as its guard.
#pragma once

#include <string>

#include "host/Export.hpp"

namespace host {

/// One thread at a time may use a guard.
class HOST_EXPORT TempDirGuard {
public:
    /// Makes a new, empty folder in `parent`, readable for its owner only, with a name that nobody can predict:
    /// `prefix`, a random part, `suffix`.
    /// @throws FileSystemException if it cannot be made
    TempDirGuard(const std::u16string& parent, const std::u16string& prefix, const std::u16string& suffix);

    /// Removes the folder with everything in it; what cannot be removed is logged and stays.
    ~TempDirGuard();

    TempDirGuard(const TempDirGuard&) = delete;
    TempDirGuard& operator=(const TempDirGuard&) = delete;

    /// The full name of the folder.
    const std::u16string& getDirectoryName() const noexcept { return name_; }

private:
    std::u16string name_;
};

}  // namespace host
