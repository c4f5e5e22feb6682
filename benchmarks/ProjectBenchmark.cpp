// Whole projects, in each kind of store: exported into one file, by the library and by the command, read through the
// interface of stores, written first, and changed in one place. Next to each stands the least that has to be done with
// the same bytes, or what one would do instead.

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <utility>

#include "benchmarks/Benchmarks.hpp"
#include "benchmarks/Generated.hpp"
#include "benchmarks/Heap.hpp"
#include "benchmarks/Measuring.hpp"
#include "benchmarks/Peers.hpp"
#include "benchmarks/Process.hpp"
#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_support/NodeBlob.hpp"
#include "stores/sqlite/Sqlite.hpp"

namespace benchmarks {

namespace {

using project::metadata::MetadataManager;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;

std::unique_ptr<MetadataManager> openStore(const std::u16string& store, const host::Path& root) {
    return project::metadata::getNamedFactory(store)->createManager(root);
}

void fill(MetadataManager& store, std::size_t count) {
    const std::vector<MetadataPath> paths = makePaths(count);
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    for (std::size_t i = 0; i < paths.size(); ++i)
        nodes[paths[i]] = makeNode(i);
    store.setNodes(nodes);
    store.setPaths(paths);
}

/// The root folder of a project with `count` nodes in the store named `store`, made when it is first needed.
host::Path projectOf(const std::u16string& store, std::size_t count) {
    const host::Path root = scratchFolder() / (store + number(count));
    if (!std::filesystem::exists(root.accessName()))
        fill(*openStore(store, root), count);
    return root;
}

host::Path metadataFolderOf(const host::Path& root) {
    return root / u"resources/project";
}

std::vector<std::string> listFiles(const host::Path& root) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.accessName())) {
        if (entry.is_regular_file())
            files.push_back(entry.path().native());
    }
    return files;
}

void readAll(const MetadataManager& store, const MetadataPath& path) {
    if (store.hasNode(path))
        benchmark::DoNotOptimize(store.getNode(path));
    for (const MetadataPath& child : store.getChildren(path))
        readAll(store, child);
}

/// A full read: the project is opened, and read as one reading.
void readProject(const std::u16string& store, const host::Path& root) {
    const auto opened = openStore(store, root);
    const project::metadata::RepeatableRead reading(*opened);
    readAll(*opened, {});
}

/// Every row of the table of paths, with its node. @return how many nodes there were
std::size_t selectAll(const host::Path& root) {
    using namespace stores::sqlite;
    const host::Path file = metadataFolderOf(root) / u"metadata.db";
    const Connection connection = openConnection(file.accessName(), SQLITE_OPEN_READONLY);
    const Statement statement = prepare(*connection, "SELECT node FROM path");
    store_support::NodeDecoder decoder;
    std::size_t count = 0;
    for (Query query(statement); query.next();)
        count += !query.isNull(0) && decoder.decode(query.bytes(0)) ? 1U : 0U;
    return count;
}

/// What is measured. `target` is a file that does not exist when it begins.
using Work = std::function<void(const host::Path& root, const host::Path& target)>;

/// @param prepare is called before time and instructions are taken
benchmark::internal::Benchmark* addWork(
    const std::string& name, const std::u16string& store, std::size_t count, const Work& work,
    const std::function<void()>& prepare = [] {}) {
    return add(name, 1, [=](benchmark::State& state) {
        prepare();
        const host::Path root = projectOf(store, count);
        const host::Path target = scratchFolder() / u"exported.xml";
        for (auto _ : state) {
            std::filesystem::remove(target.accessName());
            timed(state, [&] { work(root, target); });
        }
    });
}

/// The tree that an export of `count` nodes writes, which is read when it is first needed.
const MetadataNode& exportedTree(std::size_t count) {
    static std::map<std::size_t, std::unique_ptr<MetadataNode>> trees;
    auto& tree = trees[count];
    if (!tree) {
        const host::Path root = projectOf(u"monolithic", count);
        tree = project::metadata::readFromFile(metadataFolderOf(root) / u"Project.xml");
    }
    return *tree;
}

void addExports(const std::u16string& store, std::size_t count, const char* reference, const Work& readAndWrite) {
    const std::string name = "export_" + host::toUtf8(store) + "/" + std::to_string(count) + "/";
    addWork(name + "project_metadata", store, count, [](const host::Path& root, const host::Path& target) {
        project::metadata::writeMetadataToSingleFile(root, target);
    });
    // What is written is the same for all kinds of store.
    addWork(name + reference, store, count, readAndWrite, [=] { exportedTree(count); });
    add(name + "command", 1, [=](benchmark::State& state) {
        const host::Path root = projectOf(store, count);
        const std::string target = (scratchFolder() / u"exported.xml").accessName();
        for (auto _ : state) {
            std::filesystem::remove(target);
            timedRun(state, {findCommand(), "export", root.accessName(), "--output", target});
        }
    });
}

void addExportBenchmarks(std::size_t count) {
    addExports(u"monolithic", count, "read_and_write", [](const host::Path& root, const host::Path& target) {
        const auto node = project::metadata::readFromFile(metadataFolderOf(root) / u"Project.xml");
        project::metadata::writeToFile(*node, target, false);
    });
    addExports(u"fixedPath", count, "read_and_write", [=](const host::Path& root, const host::Path& target) {
        for (const std::string& file : listFiles(root))
            benchmark::DoNotOptimize(project::metadata::readFromFile(host::Path::fromAccessName(file)));
        project::metadata::writeToFile(exportedTree(count), target, false);
    });
    addExports(u"sqlite", count, "select_and_write", [=](const host::Path& root, const host::Path& target) {
        selectAll(root);
        project::metadata::writeToFile(exportedTree(count), target, false);
    });
}

void addReadBenchmarks(std::size_t count) {
    const std::string end = "/" + std::to_string(count) + "/";
    for (const std::u16string store : {u"fixedPath", u"monolithic", u"sqlite"}) {
        addWork("readAll_" + host::toUtf8(store) + end + "project_metadata", store, count,
                [=](const host::Path& root, const auto&) { readProject(store, root); });
    }
    addWork("readAll_fixedPath" + end + "text_reader", u"fixedPath", count, [](const host::Path& root, const auto&) {
        for (const std::string& file : listFiles(root))
            visitWithTextReader(file);
    });
    addWork("readAll_sqlite" + end + "select", u"sqlite", count,
            [](const host::Path& root, const auto&) { selectAll(root); });
}

void flushAll(const host::Path& folder) {
    const int descriptor = open(folder.accessName().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    syncfs(descriptor);
    close(descriptor);
}

/// A new folder each time: some file systems are slow in making files when many have just been removed.
host::Path newFolder(const char16_t* name) {
    static std::uint64_t last = 0;
    return scratchFolder() / (name + number(++last));
}

void addWriteBenchmarks(std::size_t count) {
    const std::string name = "firstWrite_fixedPath/" + std::to_string(count) + "/";
    add(name + "project_metadata", 1, [=](benchmark::State& state) {
        for (auto _ : state) {
            const host::Path root = newFolder(u"first");
            const std::vector<MetadataPath> paths = makePaths(count);
            std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
            for (std::size_t i = 0; i < paths.size(); ++i)
                nodes[paths[i]] = makeNode(i);
            const auto store = openStore(u"fixedPath", root);
            sync();
            timed(state, [&] {
                const project::metadata::WholeContentWrite writing(*store);
                store->setNodes(nodes);
                store->setPaths(paths);
            });
        }
    });
    add(name + "tar", 1, [=](benchmark::State& state) {
        const std::string archive = (scratchFolder() / (u"first" + number(count) + u".tar")).accessName();
        if (!std::filesystem::exists(archive))
            run({"tar", "cf", archive, "-C", projectOf(u"fixedPath", count).accessName(), "."});
        for (auto _ : state) {
            const host::Path root = newFolder(u"tar");
            std::filesystem::create_directory(root.accessName());
            sync();
            timedRun(state, {"tar", "xf", archive, "-C", root.accessName()}, [&] { flushAll(root); });
        }
    });
}

/// A node in the middle of the project is changed, by a store that was opened before and has made its first change.
void addChangeBenchmark(const std::u16string& store, std::size_t count) {
    constexpr benchmark::IterationCount changes = 20;
    const std::string name = "change_" + host::toUtf8(store) + "/" + std::to_string(count) + "/project_metadata";
    add(name, changes, [=](benchmark::State& state) {
        static std::uint64_t revision = 1'000'000'000;  // no node is changed to what it is
        const std::vector<MetadataPath> paths = makePaths(count);
        const auto opened = openStore(store, projectOf(store, count));
        opened->setNode(paths.back(), *makeNode(++revision));
        sync();
        std::size_t next = count / 2;
        for (auto _ : state) {
            const auto node = makeNode(++revision);
            timed(state, [&] { opened->setNode(paths[next], *node); });
            next = (next + count / 50) % count;
        }
    });
}

void addOpenBenchmark(const std::u16string& store, std::size_t count) {
    addWork("open_" + host::toUtf8(store) + "/" + std::to_string(count) + "/project_metadata", store, count,
            [=](const host::Path& root, const auto&) {
                benchmark::DoNotOptimize(openStore(store, root)->getChildren({}));
            });
}

/// What a large project costs to read and to export, and what memory it takes while it is open.
void addLargeBenchmarks(const std::u16string& store, std::size_t count) {
    const std::string end = "_" + host::toUtf8(store) + "/" + std::to_string(count) + "/";
    // As what they are compared with: only the first of them gets its memory from the system.
    const auto addRepeated = [&](const std::string& name, const Work& work) {
        addWork(name, store, count, work)->Repetitions(3);
    };
    addRepeated("readAll" + end + "project_metadata",
                [=](const host::Path& root, const auto&) { readProject(store, root); });
    addRepeated("export" + end + "project_metadata", [](const host::Path& root, const host::Path& target) {
        project::metadata::writeMetadataToSingleFile(root, target);
    });
    const auto addMemory = [&](const std::string& name, const std::function<std::int64_t()>& measure) {
        add("memory" + end + name, 1, [=](benchmark::State& state) {
            for (auto _ : state)
                timed(state, [&] { state.counters["peak"] = static_cast<double>(measure()); });
        })->Repetitions(1);
    };
    addMemory("project_metadata", [=] {
        const host::Path root = projectOf(store, count);
        return measureHeap([&] { readProject(store, root); }).peak;
    });
    addMemory("one_kilobyte", [=] { return static_cast<std::int64_t>(1024 * count); });
}

}  // namespace

void addProjectBenchmarks() {
    for (const std::size_t count : {10000U, 100000U}) {
        addExportBenchmarks(count);
        addReadBenchmarks(count);
        addWriteBenchmarks(count);
    }
    constexpr std::size_t large = 1'000'000;
    for (const std::u16string store : {u"fixedPath", u"monolithic", u"sqlite"}) {
        for (const std::size_t count : {std::size_t{1000}, std::size_t{100'000}, large}) {
            addChangeBenchmark(store, count);
            addOpenBenchmark(store, count);
        }
        addLargeBenchmarks(store, large);
    }
}

}  // namespace benchmarks
