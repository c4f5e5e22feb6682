/// The user's settings: groups of values, each value known by a key.
///
/// The library reads three: "DefaultMetadataRoot" and "DefaultMetadataManager" in "korvex.project.creation", and
/// "MakeReadOnlyMetadataWritable" in "korvex.project.metadata". The store "postgresql" reads "AllowedServers" in
/// "korvex.project.metadata.postgresql"; where there is no such group, it opens nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Export.hpp"
#include "host/Path.hpp"

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

/// A value that is in effect, or that stands where settings are kept. A value type.
struct Setting {
    std::string group, key;
    std::u16string value;
    Path file;               ///< where it is set; empty for what holds without being set
    unsigned long line = 0;  ///< in that file, from 1; 0 if that is not known
    bool isKnown = true;     ///< false for what nobody reads, as if its name is misspelt
};

/// What the root of the settings may implement besides, so that people can look at them. Ask for it by `dynamic_cast`.
class HOST_EXPORT SettingsLister {
public:
    virtual ~SettingsLister();

    /// All settings, by group and key. May be called from any thread.
    /// @throws std::exception if the settings cannot be read
    virtual std::vector<Setting> listSettings() const = 0;

    /// The file in which a user changes them, which need not be there; empty if there is none.
    virtual Path getSettingsFile() const = 0;
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
