// Addresses as texts of the command line: what is taken for one is shown in a way that gives the same.

#include "cli/text/PathText.hpp"
#include "cli/text/Errors.hpp"
#include "fuzz/Fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto address = cli::parseAddress(std::string(data, data + size));
        fuzz::require(cli::parseAddress(cli::formatAddress(address)) == address);
    } catch (const cli::CommandError&) {
    }
    return 0;
}
