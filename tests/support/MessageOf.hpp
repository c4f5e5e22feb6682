/// The text of an error that a test provokes.
#pragma once

#include <string>

namespace test {

/// The text of the error of type `Error` that `action` throws.
template <class Error, class Action>
std::string messageOf(const Action& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

}  // namespace test
