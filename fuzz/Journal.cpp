// Journals of batches: none of them touches a file outside of its folder.

#include "fuzz/Fuzz.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/FolderLock.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string folder = fuzz::emptyFolder();
    const std::string outside = fuzz::scratch() + "/outside";
    if (!std::filesystem::exists(outside))
        fuzz::write(outside, "untouched");
    std::filesystem::create_directories(folder + "/.pending/new");
    std::filesystem::create_directories(folder + "/.pending/old");
    std::filesystem::create_symlink(fuzz::scratch(), folder + "/link");
    for (const char* file : {"/Project.xml", "/a.xml", "/.pending/new/0", "/.pending/new/1", "/.pending/old/0"})
        fuzz::write(folder + file, file);
    fuzz::write(folder + (size % 2 == 0 ? "/.pending/journal" : "/.pending/journal-back"),
                "project_metadata batch 1\n" + std::string(data, data + size));
    fuzz::attempt([&] { store_support::settle(host::Path::fromAccessName(folder)); });
    fuzz::attempt([&] { const store_support::FolderLock lock(host::Path::fromAccessName(folder)); });
    fuzz::require(std::filesystem::file_size(outside) == 9);
    const std::filesystem::directory_iterator entries(fuzz::scratch());
    fuzz::require(std::distance(begin(entries), end(entries)) == 2);
    return 0;
}
