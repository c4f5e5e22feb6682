/// Where the metadata of a project lives: in the first known metadata folder below its root that holds the core file
/// "Project.xml", or in the one that the user's settings name for new projects.
///
/// Objects do not change and may be used from any thread; every call looks at the disk anew and changes nothing there.
#pragma once

#include <optional>
#include <string>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataLocation.hpp"

namespace project::metadata {

class PROJECT_METADATA_EXPORT ProjectMetadataLocation : public MetadataLocation {
public:
    /// @param root the root folder of the project
    explicit ProjectMetadataLocation(const host::Path& root);
    ~ProjectMetadataLocation() override;

    /// The folder of the core file, or root / `getRootFromSettings()` if there is none.
    /// @throws MetadataReadFailure as `locateCoreFile`; errors of the settings
    host::Path getDirectory() const override;

    /// `getDirectory()` / "Project.xml", whether it exists or not.
    /// @throws as `getDirectory`
    host::Path getCoreFile() const override;

    /// Whether `locateCoreFile` finds one.
    /// @throws MetadataReadFailure as `locateCoreFile`
    bool hasCoreFile() const override;

    /// The first existing core file over the folders of `getSupportedRoots()`.
    /// @throws MetadataReadFailure naming the candidate whose existence cannot be found out
    std::optional<host::Path> locateCoreFile() const;

    /// The kind of store that the core file names in its attribute "MetadataType"; no value without a core file or
    /// if it names none.
    /// @throws MetadataReadFailure and others as `locateCoreFile` and `readFromFile`; also if the core file leads to a
    ///         pipe, a socket or a device, which is not opened
    std::optional<std::u16string> getMetadataType() const;

private:
    host::Path root_;
};

}  // namespace project::metadata
