/// A scratch folder for one test, and the files in it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "host/Path.hpp"

namespace test {

inline host::Path toPath(const std::filesystem::path& path) {
    return host::Path::fromAccessName(path.native());
}

inline std::filesystem::path toStd(const host::Path& path) {
    return path.accessName();
}

inline void writeBytes(const std::filesystem::path& file, const std::string& bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    if (!stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
        throw std::runtime_error("cannot write " + file.string());
}

inline std::string readBytes(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw std::runtime_error("cannot read " + file.string());
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A folder in memory where there is one, otherwise the usual folder for scratch files: for tests of many small
/// changes, which on a disk would spend their time waiting for it.
inline std::filesystem::path memoryFolder() {
    const std::filesystem::path memory = "/dev/shm";
    return access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

/// Open to every user, so that a test may become another one and still work in it.
class TempFolder {
public:
    explicit TempFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string name = (parent / "project_metadata_test_XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("cannot make " + name);
        folder_ = name;
        std::filesystem::permissions(folder_, std::filesystem::perms::all);
    }

    ~TempFolder() {
        std::error_code ignored;
        using Entries = std::filesystem::recursive_directory_iterator;
        for (Entries entry(folder_, ignored); entry != Entries(); entry.increment(ignored)) {
            if (entry->symlink_status(ignored).type() == std::filesystem::file_type::directory)
                std::filesystem::permissions(entry->path(), std::filesystem::perms::owner_all, ignored);
        }
        std::filesystem::remove_all(folder_, ignored);
    }

    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& std() const { return folder_; }
    host::Path path() const { return toPath(folder_); }
    std::filesystem::path operator/(const std::string& relative) const { return folder_ / relative; }

private:
    std::filesystem::path folder_;
};

}  // namespace test
