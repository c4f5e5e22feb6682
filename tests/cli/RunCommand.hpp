/// Runs the installed command as a user's shell would, in a process of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace test {

struct Outcome {
    int status;  // what the process ended with; of a signal, its negative number
    std::string out;
    std::string err;
};

struct Surroundings {
    /// The prefix of the installation; empty for the one that the tests have made.
    std::filesystem::path prefix;
    /// The current folder; empty for the one of the tests.
    std::filesystem::path folder;
    /// Added to the environment, which otherwise holds nothing that the command heeds.
    std::map<std::string, std::string> variables;
    /// Called in the new process before the command, such as to take away its rights.
    std::function<void()> prepare;
};

/// Runs `program` with `arguments` and waits for its end.
Outcome runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const Surroundings& surroundings = {});

/// Runs project-metadata with `arguments`.
Outcome run(const std::vector<std::string>& arguments, const Surroundings& surroundings = {});

/// For `Surroundings::prepare`: the process becomes the user "nobody" for good, if it is the superuser's.
void becomeUnprivileged();

/// For `Surroundings::prepare`: no file may become larger than `bytes`, as on a disk that is full.
std::function<void()> limitFileSize(unsigned long bytes);

/// The command reads `bytes` from its standard input.
Surroundings withInput(const std::string& bytes);

/// A copy of the installation in another folder, which every user can use. The same one for all tests of a process.
const std::filesystem::path& movedInstallation();

}  // namespace test
