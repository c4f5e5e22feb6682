/// What has to be said to a store before it can make a project, for stores that keep content elsewhere than in the
/// project's folder; and how such content is followed and removed. Both interfaces are optional.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "project/Export.hpp"

namespace project::metadata {

/// A value type.
struct MetadataOption {
    std::u16string name;         ///< a word
    std::u16string description;  ///< one line for people, which says what holds if it is not given
};

/// What a `MetadataManager` may implement besides. Ask for it with a `dynamic_cast`.
class PROJECT_METADATA_EXPORT MetadataOptions {
public:
    virtual ~MetadataOptions() = default;

    /// What can be said about a project that the store is to make.
    virtual std::vector<MetadataOption> getOptions() const = 0;

    /// Says it, before the first change. A project that is there already stays where it is.
    /// @param name of an option that `getOptions` has; others are of no effect
    virtual void setOption(const std::u16string& name, const std::u16string& value) = 0;

protected:
    MetadataOptions() = default;
    MetadataOptions(const MetadataOptions&) = default;
    MetadataOptions& operator=(const MetadataOptions&) = default;
};

/// What a `MetadataManager` may implement besides whose content is not in the files of the metadata folder, so that it
/// does not go with them. Ask for it with a `dynamic_cast`.
class PROJECT_METADATA_EXPORT RemoteContent {
public:
    virtual ~RemoteContent() = default;

    /// A number that grows with each change of the content, whoever makes it.
    /// @throws project::metadata::MetadataReadFailure
    virtual std::int64_t getContentVersion() const = 0;

    /// Waits until the content has another version than `version`, until `limit` is over, or until the file descriptor
    /// `descriptor` can be read; -1 for none.
    /// @return the version that is known then; 0 if there is no project any more
    /// @throws project::metadata::MetadataReadFailure, also if the way to the content breaks and cannot be found again;
    ///         host::InterruptedException
    virtual std::int64_t waitForChange(std::int64_t version, int descriptor, std::chrono::milliseconds limit) = 0;

    /// Removes all content, so that nothing is left but the files in the metadata folder; for tools that have moved it
    /// elsewhere, or have made it in vain. It is the content that the store was asked about last, whatever has become
    /// of the metadata folder since. The store is of no use then.
    /// @return false if the content has changed since it had the version `version`: then it is kept
    /// @throws project::metadata::MetadataWriteFailure, MetadataReadFailure
    virtual bool removeContent(std::int64_t version) = 0;

protected:
    RemoteContent() = default;
    RemoteContent(const RemoteContent&) = default;
    RemoteContent& operator=(const RemoteContent&) = default;
};

}  // namespace project::metadata
