// Databases in a sound project. The first byte says what the others change: the database itself, a rollback journal of
// one of its transactions, or its log; as a capital letter, they replace it.

#include <algorithm>
#include <fstream>
#include <iterator>

#include "fuzz/Fuzz.hpp"
#include "stores/sqlite/SqliteManager.hpp"

namespace {

std::string read(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// A database with some paths, and what lies beside it while it is being written.
struct Sound {
    std::string database;
    std::string log;
    std::string journal;

    Sound() {
        const std::string folder = fuzz::emptyFolder();
        const auto setNodes = [&](stores::sqlite::SqliteManager& store, const char16_t* value) {
            project::metadata::MetadataNodeSpecification node(u"Info");
            node.put(u"Key", value);
            for (const char16_t* name : {u"a", u"b", u"c"})
                store.setNode(project::metadata::MetadataPath({{u"Folder", u"src"}, {u"File", name}}), node);
        };
        {
            stores::sqlite::SqliteManager store(host::Path::fromAccessName(folder), fuzz::runJob);
            setNodes(store, u"1");
        }
        database = read(folder + "/metadata.db");
        {
            stores::sqlite::SqliteManager store(host::Path::fromAccessName(folder), fuzz::runJob);
            setNodes(store, u"2");
            log = read(folder + "/metadata.db-wal");
        }
        const auto connection = stores::sqlite::openConnection(folder + "/metadata.db", SQLITE_OPEN_READWRITE);
        stores::sqlite::execute(*connection, "PRAGMA cache_size = 1; BEGIN; UPDATE path SET node = zeroblob(20000)");
        journal = read(folder + "/metadata.db-journal");
    }
};

/// `data` is a sequence of places, two bytes each, the number of bytes that change there, and these.
std::string change(std::string bytes, const std::uint8_t* data, const std::uint8_t* end) {
    while (end - data > 3) {
        const std::size_t place = std::size_t{data[0]} << 8 | data[1];
        const std::ptrdiff_t count = std::min<std::ptrdiff_t>(data[2], end - data - 3);
        if (place < bytes.size())
            bytes.replace(place, static_cast<std::size_t>(count), std::string(data + 3, data + 3 + count));
        data += 3 + count;
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Sound sound;
    if (size == 0)
        return 0;
    const std::string folder = fuzz::emptyFolder();
    const auto make = [&](char letter, const std::string& from) {
        return data[0] == letter               ? change(from, data + 1, data + size)
               : data[0] == letter + 'A' - 'a' ? std::string(data + 1, data + size)
                                               : from;
    };
    fuzz::write(folder + "/Project.xml", "<Project MetadataType=\"sqlite\"/>");
    fuzz::write(folder + "/metadata.db", make('d', sound.database));
    if (data[0] == 'j' || data[0] == 'J')
        fuzz::write(folder + "/metadata.db-journal", make('j', sound.journal));
    if (data[0] == 'w' || data[0] == 'W')
        fuzz::write(folder + "/metadata.db-wal", make('w', sound.log));
    fuzz::attempt([&] {
        stores::sqlite::SqliteManager store(host::Path::fromAccessName(folder), fuzz::runJob,
                                            std::chrono::milliseconds(0));
        fuzz::exercise(store);
    });
    return 0;
}
