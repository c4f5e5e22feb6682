// What Framework::WaitForStop reports.
#pragma once

#include <cstdint>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class FrameworkEvent {
public:
    enum Type : std::uint32_t {
        /// WaitForStop was called on a framework that was never initialised.
        FRAMEWORK_ERROR = 0x00000002,
        FRAMEWORK_STOPPED = 0x00000040,
        FRAMEWORK_WAIT_TIMEDOUT = 0x00000200
    };

    Type GetType() const { return type_; }
    Bundle GetBundle() const { return framework_; }

private:
    friend class Framework;

    FrameworkEvent(Type type, const Bundle& framework) : type_(type), framework_(framework) {}

    Type type_;
    Bundle framework_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
