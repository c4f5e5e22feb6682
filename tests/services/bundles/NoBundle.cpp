// A shared object that is no bundle. It is linked to one, which must not make it pass for one.
extern "C" __attribute__((visibility("default"))) int answer() {
    return 42;
}
