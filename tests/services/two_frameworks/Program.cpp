// two_frameworks MODULE... loads the modules, one after the other, and calls use() of each.
#include <dlfcn.h>

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        void* const module = dlopen(argv[i], RTLD_NOW | RTLD_LOCAL);
        const auto use = module ? reinterpret_cast<void (*)()>(dlsym(module, "use")) : nullptr;
        if (!use) {
            std::cerr << dlerror() << '\n';
            return 2;
        }
        try {
            use();
        } catch (const std::exception& error) {
            std::cerr << argv[i] << ": " << error.what() << '\n';
            return 1;
        }
    }
    return 0;
}
