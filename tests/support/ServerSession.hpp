/// What tests of all stores have to know of a store whose content is on a server.
#pragma once

#include <functional>

namespace test {

/// Waits until the server has done what it was doing for processes that are gone. Empty where there is no server.
inline std::function<void()> waitForSessions;

}  // namespace test
