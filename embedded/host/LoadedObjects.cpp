#include "embedded/host/LoadedObjects.hpp"

#include <dlfcn.h>
#include <link.h>

#include <cstdint>

namespace host {

namespace {

struct Search {
    std::string_view name;
    std::uintptr_t thisLibrary;
    bool found;
};

/// The section that names the libraries which `object` was linked with; null without one.
const ElfW(Dyn) * getDynamicSection(const dl_phdr_info& object) {
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const auto address = object.dlpi_addr + object.dlpi_phdr[i].p_vaddr;
        if (object.dlpi_phdr[i].p_type == PT_DYNAMIC)
            return reinterpret_cast<const ElfW(Dyn)*>(address);  // NOLINT(performance-no-int-to-ptr)
    }
    return nullptr;
}

bool isLinkedWith(const dl_phdr_info& object, std::string_view library) {
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
        const auto name =
            reinterpret_cast<const char*>(names + entry->d_un.d_val);  // NOLINT(performance-no-int-to-ptr)
        if (entry->d_tag == DT_NEEDED && std::string_view(name).substr(0, library.size()) == library)
            return true;
    }
    return false;
}

int examine(dl_phdr_info* object, std::size_t /*size*/, void* argument) {
    auto& search = *static_cast<Search*>(argument);
    const bool isThisLibrary = object->dlpi_addr == search.thisLibrary;
    search.found = !isThisLibrary && isLinkedWith(*object, search.name);
    return search.found ? 1 : 0;
}

}  // namespace

bool isLinkedByOthers(std::string_view library) {
    Dl_info self{};
    dladdr(reinterpret_cast<const void*>(&isLinkedByOthers), &self);
    Search search{library, reinterpret_cast<std::uintptr_t>(self.dli_fbase), false};
    dl_iterate_phdr(examine, &search);
    return search.found;
}

}  // namespace host
