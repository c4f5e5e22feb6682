#include "operations/StoreFiles.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace operations {

namespace {

/// Such as "Folder=src/File=main.c.xml".
bool isPathFile(const std::u16string& name) {
    constexpr std::u16string_view extension = u".xml";
    for (std::u16string_view rest = name;;) {
        const std::size_t end = rest.find(u'/');
        const std::u16string_view step = rest.substr(0, end);
        const bool isLast = end == std::u16string_view::npos;
        const bool isXml = step.size() >= extension.size() && step.substr(step.size() - extension.size()) == extension;
        if (step.find(u'=') == std::u16string_view::npos || isXml != isLast)
            return false;
        if (isLast)
            return true;
        rest.remove_prefix(end + 1);
    }
}

/// The database, and what SQLite has beside it while it is open (https://sqlite.org/tempfiles.html).
bool isDatabaseFile(const std::u16string& name) {
    static const std::u16string_view files[] = {u"metadata.db", u"metadata.db-journal", u"metadata.db-shm",
                                                u"metadata.db-wal"};
    return std::find(std::begin(files), std::end(files), name) != std::end(files);
}

}  // namespace

std::optional<StoreFiles> getStoreFiles(const std::u16string& type) {
    static const std::pair<std::u16string_view, StoreFiles> known[] = {
        {u"fixedPath", {isPathFile, true}},
        {u"monolithic", {[](const std::u16string& /*name*/) { return false; }, false}},
        {u"sqlite", {isDatabaseFile, false}},
    };
    for (const auto& [name, files] : known) {
        if (name == type)
            return files;
    }
    return std::nullopt;
}

}  // namespace operations
