#include "cli/Output.hpp"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "cli/Options.hpp"
#include "host/Interruption.hpp"

namespace cli {

namespace {

[[noreturn]] void raiseWriteError(int error) {
    if (error == EPIPE)
        throw OutputClosed();
    throw std::system_error(error, std::generic_category(), "The standard output cannot be written");
}

}  // namespace

void print(std::string_view text) {
    host::Interruption::throwIfRequested();
    if (std::fwrite(text.data(), 1, text.size(), stdout) < text.size())
        raiseWriteError(errno);
}

void printNote(std::string_view text) {
    if (!options().quiet)
        print(text);
}

void flushOutput() {
    if (std::fflush(stdout) != 0)
        raiseWriteError(errno);
}

}  // namespace cli
