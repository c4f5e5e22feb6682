#include "stores/fixed_path/Fingerprint.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/Text.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileVersion.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

namespace {

/// Of the file of a path, or of the folder for those below it.
struct NamedVersion {
    std::string name;
    store_support::FileVersion version;  // all 0 for a folder
};

std::string join(std::vector<NamedVersion> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const NamedVersion& a, const NamedVersion& b) { return a.name < b.name; });
    const std::size_t count = entries.size();
    std::string bytes(reinterpret_cast<const char*>(&count), sizeof count);
    for (const auto& [name, version] : entries) {
        bytes.append(name).append(1, '\0');
        bytes.append(reinterpret_cast<const char*>(&version), sizeof version);
    }
    return bytes;
}

}  // namespace

std::string readFingerprint(const Path& childFolder) {
    const store_support::Descriptor folder(childFolder.accessName(), O_PATH | O_DIRECTORY);
    std::vector<NamedVersion> entries;
    for (store_support::FolderEntry& entry : store_support::listEntries(childFolder)) {
        const Path path = childFolder / Path::fromAccessName(entry.name);
        struct stat status {};
        if (isNodeFile(path)) {
            if (fstatat(folder.number(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
                return {};
            entries.push_back({std::move(entry.name), store_support::makeFileVersion(status)});
        } else if (isNodeFolder(path)) {
            entries.push_back({std::move(entry.name), {}});
        }
    }
    return join(std::move(entries));
}

std::string makeFingerprint(const Listing& listing, const SeenFiles& seen) {
    const std::string extension = host::toUtf8(nodeFileExtension);
    std::vector<NamedVersion> entries;
    entries.reserve(listing.children.size());
    for (const auto& [content, hasFolder] : listing.children) {
        if (content->damage || seen.isNews(content->version))
            return {};
        std::string name = Path(nodeFolderName(content->element)).accessName();
        if (hasFolder)
            entries.push_back({name, {}});
        entries.push_back({name + extension, content->version});
    }
    return join(std::move(entries));
}

}  // namespace stores::fixed_path
