// Core files, as the store that keeps everything in one sees them.

#include "fuzz/Fuzz.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string folder = fuzz::emptyFolder();
    fuzz::write(folder + "/Project.xml", std::string(data, data + size));
    fuzz::attempt([&] {
        stores::monolithic::MonolithicManager store(host::Path::fromAccessName(folder), fuzz::runJob);
        fuzz::exercise(store);
    });
    return 0;
}
