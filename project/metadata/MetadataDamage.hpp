/// What is damaged in a project's metadata, for stores that can tell.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace project::metadata {

/// A value type.
struct MetadataDamage {
    host::Path file;         ///< the damaged file, also where it is missing
    std::u16string problem;  ///< what is wrong with it, in words
    /// Whether nothing is out of reach by it: the path reads as a branch, and what is below it as ever.
    bool readsAsBranch = false;
    /// Whether all metadata in it is read as ever. It holds something else, and is not overwritten.
    bool isForeign = false;
    /// Whether no metadata is kept in it, so that all is read as ever. It is not overwritten either.
    bool holdsNoMetadata = false;
    /// All that it concerns is at this path, or is below it and cannot be read; no value if nobody can tell.
    std::optional<MetadataPath> path = std::nullopt;
};

/// Learns of damage. Called on the thread that uses the store, also by several at once; must not throw.
using DamageSink = std::function<void(const MetadataDamage& damage)>;

/// From now on all stores of the process tell `sink` of damage as they come upon it, which need not be all there is,
/// and may be the same again. Without a sink, as in the beginning or if it is null, they log a warning. May be called
/// from any thread.
PROJECT_METADATA_EXPORT void setDamageSink(DamageSink sink);

/// For stores: tells the sink of `damage`. @return whether there is one. May be called from any thread.
PROJECT_METADATA_EXPORT bool tellDamage(const MetadataDamage& damage);

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
