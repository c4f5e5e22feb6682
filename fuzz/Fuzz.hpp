/// What the fuzz targets share. A target hands the library bytes that a stranger might have written, and lives as long
/// as its process: what is refused is refused with an error of the library; anything else that happens is a finding.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/MessageException.hpp"
#include "host/Path.hpp"
#include "project/exception/ProjectException.hpp"
#include "project/metadata/FileJob.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace fuzz {

/// A folder in memory, which is removed at the end of the process.
inline const std::string& scratch() {
    static const struct Folder {
        std::string name = "/dev/shm/project_metadata_fuzz_XXXXXX";
        Folder() {
            if (!mkdtemp(name.data()))
                std::abort();
        }
        ~Folder() { std::filesystem::remove_all(name); }
    } folder;
    return folder.name;
}

/// An empty folder in `scratch()`.
inline std::string emptyFolder() {
    const std::string folder = scratch() + "/project";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

inline void write(const std::string& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

inline void require(bool isTrue) {
    if (!isTrue)
        std::abort();
}

/// Does `action`, which may be refused. @return whether it was not
template <class Action>
bool attempt(const Action& action) {
    try {
        action();
        return true;
    } catch (const project::exception::ProjectException&) {
    } catch (const host::UserException&) {
    }
    return false;
}

inline void runJob(project::metadata::FileJob job) {
    job.run();
}

/// More paths than any input of these targets can hold: a store that lists more goes round in circles.
constexpr std::size_t mostPaths = 20000;

/// Reads everything, changes something, and reads that again.
inline void exercise(project::metadata::MetadataManager& store) {
    using project::metadata::MetadataPath;
    std::deque<MetadataPath> queue(1);
    for (std::size_t count = 0; !queue.empty(); queue.pop_front()) {
        require(++count < mostPaths);
        attempt([&] { store.getNode(queue.front()); });
        attempt([&] {
            for (const MetadataPath& child : store.getChildren(queue.front()))
                queue.push_back(child);
        });
    }
    attempt([&] { dynamic_cast<const project::metadata::DamageReporter&>(store).findDamage(); });
    const MetadataPath path({{u"Fuzz", u"path"}});
    const project::metadata::MetadataNodeSpecification node(u"Fuzz");
    if (attempt([&] { store.setNode(path, node); }))
        require(store.hasNode(path) && store.getNode(path)->getName() == u"Fuzz");
    if (attempt([&] { store.removePath(path); }))
        require(!store.hasPath(path));
    attempt([&] { store.setPaths({path}); });
}

}  // namespace fuzz
