/// What a subscriber of a `FileJobManager` returns to learn of the end of a batch.
#pragma once

#include "project/Export.hpp"

namespace project::metadata {

/// The manager holds the guards while a batch runs and only ever releases them; a subscriber derives from this and
/// does in the destructor what is to be done at the end. It runs on the thread of the batch and must not throw.
class PROJECT_METADATA_EXPORT ChangeGuard {
public:
    virtual ~ChangeGuard() = default;

protected:
    ChangeGuard() = default;
    ChangeGuard(const ChangeGuard&) = default;
    ChangeGuard& operator=(const ChangeGuard&) = default;
};

}  // namespace project::metadata
