/// What is damaged in a project's metadata, for stores that can tell.
#pragma once

#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/Export.hpp"

namespace project::metadata {

/// A value type.
struct MetadataDamage {
    host::Path file;         ///< the damaged file, also where it is missing
    std::u16string problem;  ///< what is wrong with it, in words
};

/// What a `MetadataManager` may implement besides. Ask for it with a `dynamic_cast`.
class PROJECT_METADATA_EXPORT DamageReporter {
public:
    virtual ~DamageReporter() = default;

    /// Reads everything. @return each damage that is found, in the order of the files' names
    /// @throws project::metadata::ListChildFilesFailure, MetadataReadFailure if the metadata cannot be looked through
    virtual std::vector<MetadataDamage> findDamage() const = 0;

protected:
    DamageReporter() = default;
    DamageReporter(const DamageReporter&) = default;
    DamageReporter& operator=(const DamageReporter&) = default;
};

}  // namespace project::metadata
