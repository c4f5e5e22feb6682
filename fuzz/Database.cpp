// Databases in a sound project. What the bytes stand for is said by the first one: the database, or the rollback
// journal or the log of a sound one.

#include <fstream>
#include <iterator>

#include "fuzz/Fuzz.hpp"
#include "stores/sqlite/SqliteManager.hpp"

namespace {

/// A database with some paths.
const std::string& soundDatabase() {
    static const std::string bytes = [] {
        const std::string folder = fuzz::emptyFolder();
        {
            stores::sqlite::SqliteManager store(host::Path::fromAccessName(folder), fuzz::runJob);
            project::metadata::MetadataNodeSpecification node(u"Info");
            node.put(u"Key", u"Value");
            for (const char16_t* name : {u"a", u"b", u"c"})
                store.setNode(project::metadata::MetadataPath({{u"Folder", u"src"}, {u"File", name}}), node);
        }
        std::ifstream stream(folder + "/metadata.db", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }();
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string& sound = soundDatabase();
    const std::string folder = fuzz::emptyFolder();
    const std::string bytes(data + 1, data + size);
    fuzz::write(folder + "/Project.xml", "<Project MetadataType=\"sqlite\"/>");
    fuzz::write(folder + "/metadata.db", data[0] == 'd' ? bytes : sound);
    if (data[0] == 'j' || data[0] == 'w')
        fuzz::write(folder + (data[0] == 'j' ? "/metadata.db-journal" : "/metadata.db-wal"), bytes);
    fuzz::attempt([&] {
        stores::sqlite::SqliteManager store(host::Path::fromAccessName(folder), fuzz::runJob,
                                            std::chrono::milliseconds(0));
        fuzz::exercise(store);
    });
    return 0;
}
