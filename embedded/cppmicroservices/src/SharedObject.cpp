// Loading bundles with the dynamic linker.
#include "embedded/cppmicroservices/src/SharedObject.hpp"

#include <dlfcn.h>
#include <link.h>

#include <stdexcept>

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {
namespace {

/// The symbol if the object itself defines it, else null. dlsym also searches what the object is linked to, which may
/// be a bundle.
void* findOwnSymbol(void* object, const char* name) {
    void* const symbol = dlsym(object, name);
    void* own = nullptr;
    void* defining = nullptr;
    Dl_info definition = {};
    if (!symbol || dlinfo(object, RTLD_DI_LINKMAP, static_cast<void*>(&own)) != 0 ||
        dladdr1(symbol, &definition, &defining, RTLD_DL_LINKMAP) == 0)
        return nullptr;
    return own == defining ? symbol : nullptr;
}

template <class Function>
Function findOwnFunction(void* object, const char* name) {
    return reinterpret_cast<Function>(findOwnSymbol(object, name));
}

}  // namespace

SharedObject loadBundle(const std::string& path) {
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    void* const object = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!object)
        throw std::runtime_error(dlerror());
    const auto descriptor = findOwnFunction<decltype(&us_bundle_descriptor)>(object, "us_bundle_descriptor");
    if (!descriptor) {
        dlclose(object);  // nobody has seen anything of it yet
        throw std::runtime_error("the shared object is no bundle (it lacks CPPMICROSERVICES_INITIALIZE_BUNDLE)");
    }
    return {descriptor(), findOwnFunction<decltype(&us_bundle_create_activator)>(object, "us_bundle_create_activator")};
}

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
