// Paths as texts of the command line: what is taken for a path is shown in a way that gives the same path.

#include "cli/text/PathText.hpp"
#include "cli/text/Errors.hpp"
#include "fuzz/Fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto path = cli::parsePath(std::string(data, data + size));
        fuzz::require(cli::parsePath(cli::formatPath(path)) == path);
    } catch (const cli::CommandError&) {
    }
    return 0;
}
