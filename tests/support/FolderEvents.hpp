/// What the kernel says that was done to the entries of a folder.
#pragma once

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace test {

/// Notes events from when it is made on; of 16,384 at most.
class FolderEvents {
public:
    /// @param kinds as inotify(7) has them
    FolderEvents(const std::filesystem::path& folder, std::uint32_t kinds)
        : queue_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        inotify_add_watch(queue_, folder.c_str(), kinds);
    }
    ~FolderEvents() { close(queue_); }

    FolderEvents(const FolderEvents&) = delete;
    FolderEvents& operator=(const FolderEvents&) = delete;

    /// To how many entries whose names end with `end` something was done since this was asked last; each time counts.
    std::size_t count(const std::string& end) const {
        std::size_t found = 0;
        alignas(inotify_event) std::array<char, 65536> events{};
        for (ssize_t size = 0; (size = ::read(queue_, events.data(), events.size())) > 0;) {
            for (ssize_t place = 0; place < size;) {
                const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + place);
                const std::string name = event->len > 0 ? event->name : "";
                found += name.size() >= end.size() && name.substr(name.size() - end.size()) == end ? 1U : 0U;
                place += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
        return found;
    }

private:
    int queue_;
};

}  // namespace test
