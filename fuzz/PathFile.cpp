// The file of a path in a store that has one for each, in a sound project.

#include "fuzz/Fuzz.hpp"
#include "stores/fixed_path/FixedPathManager.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string folder = fuzz::emptyFolder();
    fuzz::write(folder + "/Project.xml", "<Project MetadataType=\"fixedPath\"/>");
    fuzz::write(folder + "/Folder=src.xml", std::string(data, data + size));
    fuzz::attempt([&] {
        stores::fixed_path::FixedPathManager store(host::Path::fromAccessName(folder), fuzz::runJob);
        fuzz::exercise(store);
    });
    return 0;
}
