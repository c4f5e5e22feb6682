// Settings files.

#include "fuzz/Fuzz.hpp"
#include "host/SettingsService.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string file = fuzz::scratch() + "/settings.ini";
    setenv("PROJECT_METADATA_SETTINGS", file.c_str(), 1);
    fuzz::write(file, std::string(data, data + size));
    fuzz::attempt([] {
        host::SettingsService::getSettingsRoot()
            ->getGroup("korvex.project.creation")
            ->getText("DefaultMetadataRoot", "");
    });
    return 0;
}
