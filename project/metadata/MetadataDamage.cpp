#include "project/metadata/MetadataDamage.hpp"

#include <memory>
#include <mutex>
#include <utility>

namespace project::metadata {

namespace {

struct Receiver {
    std::mutex mutex;
    std::shared_ptr<const DamageSink> sink;  // null for none
};

/// Lives until the process is gone: stores may be at work until then.
Receiver& receiver() {
    static Receiver& instance = *new Receiver;
    return instance;
}

}  // namespace

void setDamageSink(DamageSink sink) {
    auto shared = sink ? std::make_shared<const DamageSink>(std::move(sink)) : nullptr;
    const std::lock_guard lock(receiver().mutex);
    receiver().sink.swap(shared);
}

bool tellDamage(const MetadataDamage& damage) {
    const std::shared_ptr<const DamageSink> sink = [] {
        const std::lock_guard lock(receiver().mutex);
        return receiver().sink;
    }();
    if (sink)
        (*sink)(damage);
    return sink != nullptr;
}

}  // namespace project::metadata
