#include "operations/Git.hpp"

#include <sys/wait.h>

#include <array>
#include <future>
#include <system_error>

#include <boost/asio/io_context.hpp>
#include <boost/process.hpp>

#include "host/Interruption.hpp"
#include "operations/Errors.hpp"

namespace operations {

namespace bp = boost::process;

namespace {

/// The environment for git: without its variables for one repository ("git rev-parse --local-env-vars"), but for the
/// configuration that they may hold.
bp::environment makeEnvironment() {
    constexpr std::array<const char*, 12> leftOut{"GIT_ALTERNATE_OBJECT_DIRECTORIES",
                                                  "GIT_OBJECT_DIRECTORY",
                                                  "GIT_DIR",
                                                  "GIT_WORK_TREE",
                                                  "GIT_IMPLICIT_WORK_TREE",
                                                  "GIT_GRAFT_FILE",
                                                  "GIT_INDEX_FILE",
                                                  "GIT_NO_REPLACE_OBJECTS",
                                                  "GIT_REPLACE_REF_BASE",
                                                  "GIT_PREFIX",
                                                  "GIT_SHALLOW_FILE",
                                                  "GIT_COMMON_DIR"};
    bp::environment environment = boost::this_process::environment();
    for (const char* const name : leftOut)
        environment.erase(name);
    environment["LC_ALL"] = "C";
    environment["GIT_OPTIONAL_LOCKS"] = "0";
    environment["GIT_TERMINAL_PROMPT"] = "0";
    environment["GIT_ALLOW_PROTOCOL"] = "none";
    return environment;
}

}  // namespace

GitOutcome runGit(const std::string& folder, std::vector<std::string> arguments, const std::string& input) {
    arguments.insert(arguments.begin(), {"-c", "core.fsmonitor=false", "-C", folder});
    boost::asio::io_context streams;
    std::future<std::string> out, error;
    std::error_code failure;
    bp::child git(bp::exe = bp::search_path("git").native(), bp::args = arguments, makeEnvironment(),
                  (bp::std_in < input), (bp::std_out > out), (bp::std_err > error), streams, failure);
    if (failure) {
        throw OperationError(ErrorKind::failure,
                             "The program git cannot be started; is it installed? " + failure.message());
    }
    streams.run();
    git.wait();
    host::Interruption::throwIfRequested();
    if (WIFSIGNALED(git.native_exit_code()))
        throw OperationError(ErrorKind::failure, "git was stopped before its end");
    GitOutcome outcome{git.exit_code(), out.get(), error.get()};
    while (!outcome.error.empty() && outcome.error.back() == '\n')
        outcome.error.pop_back();
    return outcome;
}

}  // namespace operations
