#include "embedded/host/LoadedObjects.hpp"

#include <dlfcn.h>
#include <link.h>

#include <cstdint>

namespace host {

namespace {

struct Search {
    std::string_view family;
    std::uintptr_t thisLibrary;
    bool found;
};

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

/// The section that names the libraries which `object` was linked with; null without one.
const ElfW(Dyn) * getDynamicSection(const dl_phdr_info& object) {
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const auto address = object.dlpi_addr + object.dlpi_phdr[i].p_vaddr;
        if (object.dlpi_phdr[i].p_type == PT_DYNAMIC)
            return reinterpret_cast<const ElfW(Dyn)*>(address);  // NOLINT(performance-no-int-to-ptr)
    }
    return nullptr;
}

bool isLinkedWith(const dl_phdr_info& object, std::string_view family) {
    const ElfW(Dyn)* const section = getDynamicSection(object);
    std::uintptr_t names = 0;
    for (auto entry = section; entry && entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB)
            names = entry->d_un.d_ptr;
    }
    // The loader leaves this address relative in the kernel's own object, which is linked with nothing.
    if (names < object.dlpi_addr)
        return false;
    for (auto entry = section; entry && entry->d_tag != DT_NULL; ++entry) {
        const auto name = names + entry->d_un.d_val;
        if (entry->d_tag == DT_NEEDED &&
            startsWith(reinterpret_cast<const char*>(name), family))  // NOLINT(performance-no-int-to-ptr)
            return true;
    }
    return false;
}

int examine(dl_phdr_info* object, std::size_t /*size*/, void* argument) {
    auto& search = *static_cast<Search*>(argument);
    const std::string_view file = object->dlpi_name;
    const bool ofFamily = startsWith(file.substr(file.rfind('/') + 1), search.family);
    const bool isThisLibrary = object->dlpi_addr == search.thisLibrary;
    search.found = !ofFamily && !isThisLibrary && isLinkedWith(*object, search.family);
    return search.found ? 1 : 0;
}

}  // namespace

bool isLinkedByOthers(std::string_view family) {
    Dl_info self{};
    dladdr(reinterpret_cast<const void*>(&isLinkedByOthers), &self);
    Search search{family, reinterpret_cast<std::uintptr_t>(self.dli_fbase), false};
    dl_iterate_phdr(examine, &search);
    return search.found;
}

}  // namespace host
