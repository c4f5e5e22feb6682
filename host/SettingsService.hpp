/// The user's settings: groups of values, each value known by a key.
///
/// The library reads three: "DefaultMetadataRoot" and "DefaultMetadataManager" in "korvex.project.creation", and
/// "MakeReadOnlyMetadataWritable" in "korvex.project.metadata". The store "postgresql" reads "AllowedServers" in
/// "korvex.project.metadata.postgresql"; where there is no such group, it opens nothing.
#pragma once

#include <memory>
#include <string>

#include "host/Export.hpp"

namespace host {

/// One group of settings. Implementations may be read from several threads at once.
class HOST_EXPORT SettingsGroup {
public:
    virtual ~SettingsGroup();

    /// The group below this one with the given full dotted name, never null.
    /// @throws std::exception if there is no such group or the settings cannot be read
    virtual std::shared_ptr<const SettingsGroup> getGroup(const std::string& fullName) const = 0;

    /// The UTF-16 value of `key`. `qualifier` picks one of several variants of a value where an implementation has
    /// them; the library always passes it empty.
    /// @throws std::exception if there is no such value
    virtual std::u16string getText(const std::string& key, const std::string& qualifier) const = 0;
};

/// Both operations may be called from any thread.
struct HOST_EXPORT SettingsService {
    SettingsService() = delete;

    /// The group that holds all others; null while there are no settings.
    static std::shared_ptr<const SettingsGroup> getSettingsRoot();

    /// Makes `root` the settings of this process from now on; null takes them away.
    static void setSettingsRoot(std::shared_ptr<const SettingsGroup> root);
};

}  // namespace host
