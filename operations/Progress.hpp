/// What an operation tells its caller while it is at work. All calls come from the thread that called the operation.
#pragma once

#include <memory>
#include <string>

#include "host/Interruption.hpp"
#include "host/Path.hpp"

namespace operations {

/// A piece of work, which ends with the object.
class Progress {
public:
    Progress() = default;
    virtual ~Progress() = default;

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Counts one more thing as done.
    /// @throws host::InterruptedException if the user wishes so
    virtual void advance() { host::Interruption::throwIfRequested(); }
};

/// One that is not interested in anything; derive from it what is.
class Observer {
public:
    Observer() = default;
    virtual ~Observer() = default;

    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    /// @param work what begins, such as "Copying"; the paths in it are bytes as the disk has them
    /// @return never null
    virtual std::unique_ptr<Progress> start([[maybe_unused]] const std::string& work) {
        return std::make_unique<Progress>();
    }

    /// Told before a scratch folder is used: what is logged about files in it concerns nobody.
    virtual void useScratchFolder(const host::Path& /*folder*/) {}
};

}  // namespace operations
