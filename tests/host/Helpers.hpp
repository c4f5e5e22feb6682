/// What the tests of the embedded host share.
#pragma once

#include "tests/support/MessageOf.hpp"
#include "tests/support/TempFolder.hpp"

#include <cstdio>
#include <optional>
#include <string>

namespace test {

/// An environment variable has a value, or none, for as long as this object lives.
class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
        if (const char* before = std::getenv(name_.c_str()))
            before_ = before;
        set(value);
    }

    ~ScopedVariable() { set(before_); }

    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    void set(const std::optional<std::string>& value) {
        if (value)
            setenv(name_.c_str(), value->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }

    std::string name_;
    std::optional<std::string> before_;
};

/// What the shell command `command` writes to standard output. Its failure is one of the test.
inline std::string runCommand(const std::string& command) {
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe))
        output += static_cast<char>(byte);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

}  // namespace test
