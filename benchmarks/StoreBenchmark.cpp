// What the stores cost, in time, memory and disk space, at four sizes of project, and with several clients at once, in
// the folder for scratch files. docs/performance.md says what each figure means.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/Generated.hpp"
#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "project/metadata/WholeContentWrite.hpp"

namespace {

using benchmarks::makeNode;
using benchmarks::makePaths;
using project::metadata::MetadataManager;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;

std::unique_ptr<MetadataManager> openStore(const std::u16string& store, const std::filesystem::path& root) {
    return project::metadata::getNamedFactory(store)->createManager(host::Path::fromAccessName(root.native()));
}

/// A project full of metadata, in a scratch folder.
class Project {
public:
    Project(std::u16string store, std::size_t count) : store_(std::move(store)), paths_(makePaths(count)) {
        std::string name = (std::filesystem::temp_directory_path() / "store_benchmark_XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("cannot make " + name);
        folder_ = name;
    }

    ~Project() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    Project(const Project&) = delete;
    Project& operator=(const Project&) = delete;

    std::unique_ptr<MetadataManager> open() const { return openStore(store_, folder_); }

    const std::vector<MetadataPath>& paths() const { return paths_; }

    std::map<MetadataPath, std::shared_ptr<MetadataNode>> makeNodes() {
        std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
        ++revision_;
        for (const MetadataPath& path : paths_)
            nodes[path] = makeNode(revision_);
        return nodes;
    }

    const std::filesystem::path& folder() const { return folder_; }

    /// The space that the file system gives to its files and folders.
    std::uint64_t bytesOnDisk() const {
        std::uint64_t blocks = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_)) {
            struct stat status {};
            if (lstat(entry.path().c_str(), &status) == 0)
                blocks += static_cast<std::uint64_t>(status.st_blocks);
        }
        return blocks * 512;
    }

private:
    std::u16string store_;
    std::vector<MetadataPath> paths_;
    std::filesystem::path folder_;
    std::uint64_t revision_ = 0;
};

bool hasNodesInFiles(const MetadataManager& store) {
    const auto lister = dynamic_cast<const project::metadata::StoreFileLister*>(&store);
    return lister && !lister->getNodeFile(MetadataPath()).empty();
}

/// Writes every node and path as they have never been before, and takes the time of that.
void writeAll(benchmark::State& state, Project& project) {
    for (auto _ : state) {
        state.PauseTiming();
        auto nodes = project.makeNodes();
        auto store = project.open();
        state.ResumeTiming();
        {
            const project::metadata::WholeContentWrite writing(*store);
            store->setNodes(nodes);
            store->setPaths(project.paths());
        }
        state.PauseTiming();
        nodes.clear();
        store.reset();
        state.ResumeTiming();
    }
    const auto count = static_cast<double>(project.paths().size());
    if (hasNodesInFiles(*project.open()))
        state.counters["disk"] = static_cast<double>(project.bytesOnDisk()) / count;
}

void open(benchmark::State& state, Project& project) {
    for (auto _ : state) {
        const auto store = project.open();
        benchmark::DoNotOptimize(store->getChildren(MetadataPath()));
    }
}

/// Paths of the project in a random order that is the same in each run.
std::vector<MetadataPath> shuffledPaths(const Project& project) {
    auto paths = project.paths();
    std::shuffle(paths.begin(), paths.end(), std::mt19937(1));  // NOLINT: the same order in each run
    return paths;
}

void getNode(benchmark::State& state, Project& project) {
    const auto store = project.open();
    store->getChildren(MetadataPath());
    const auto paths = shuffledPaths(project);
    std::size_t next = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(store->getNode(paths[next++]));
}

void setNode(benchmark::State& state, Project& project) {
    const auto store = project.open();
    store->getChildren(MetadataPath());
    const auto paths = shuffledPaths(project);
    std::size_t next = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const auto node = makeNode(1000 + next);
        state.ResumeTiming();
        store->setNode(paths[next++], *node);
    }
}

void readAll(const MetadataManager& store, const MetadataPath& path) {
    benchmark::DoNotOptimize(store.getNode(path));
    for (const MetadataPath& child : store.getChildren(path))
        readAll(store, child);
}

std::size_t heapInUse() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void fullRead(benchmark::State& state, Project& project) {
    std::size_t memory = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::size_t before = heapInUse();
        state.ResumeTiming();
        auto store = project.open();
        readAll(*store, MetadataPath());
        state.PauseTiming();
        memory = heapInUse() - before;
        store.reset();
        state.ResumeTiming();
    }
    state.counters["memory"] = static_cast<double>(memory) / static_cast<double>(project.paths().size());
}

void exportAll(benchmark::State& state, Project& project) {
    const std::filesystem::path file = project.folder() / "export.xml";
    for (auto _ : state) {
        project::metadata::writeMetadataToSingleFile(host::Path::fromAccessName(project.folder().native()),
                                                     host::Path::fromAccessName(file.native()));
        state.PauseTiming();
        std::filesystem::remove(file);
        state.ResumeTiming();
    }
}

/// Several clients change nodes of their own in one project; `refused` says how many changes were.
void setNodeTogether(benchmark::State& state, const Project& project) {
    const auto store = project.open();
    const auto clients = static_cast<std::size_t>(state.threads());
    auto next = static_cast<std::size_t>(state.thread_index());
    std::size_t revision = 1'000'000;
    int refused = 0;
    for (auto _ : state) {
        try {
            store->setNode(project.paths()[next], *makeNode(++revision));
        } catch (const project::metadata::MetadataWriteFailure&) {
            ++refused;
        }
        next = next + clients < project.paths().size() ? next + clients : next % clients;
    }
    state.counters["refused"] = refused;
    state.SetItemsProcessed(state.iterations());
}

struct Measure {
    const char* name;
    void (*run)(benchmark::State& state, Project& project);
    benchmark::IterationCount iterations;       ///< for up to 10,000 nodes
    benchmark::IterationCount iterationsLarge;  ///< for more
};

const Measure measures[] = {
    {"first_write", writeAll, 1, 1},  {"open", open, 5, 3},          {"get_node", getNode, 500, 500},
    {"set_node", setNode, 20, 5},     {"full_read", fullRead, 3, 1}, {"export", exportAll, 3, 1},
    {"full_rewrite", writeAll, 1, 1},
};

void registerMeasures(const std::u16string& store, std::size_t count) {
    const auto project = std::make_shared<std::unique_ptr<Project>>();
    for (const Measure& measure : measures) {
        // The first one makes the project that the others use. None is removed before the end: some file systems are
        // slow in making files when many have just been removed.
        const bool isFirst = measure.name == std::string("first_write");
        const auto run = [=](benchmark::State& state) {
            if (isFirst)
                *project = std::make_unique<Project>(store, count);
            if (!*project)
                return state.SkipWithError("needs first_write in the same run");
            sync();  // what was left unwritten so far shall not be written in the time that is taken now
            measure.run(state, **project);
        };
        const std::string name = host::toUtf8(store) + "/" + measure.name + "/" + std::to_string(count);
        benchmark::RegisterBenchmark(name.c_str(), run)
            ->Iterations(count > 10000 ? measure.iterationsLarge : measure.iterations)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    }
}

void registerClients(const std::u16string& store) {
    const auto project = std::make_shared<Project>(store, 1000);
    project->open()->setPaths(project->paths());
    for (const int clients : {1, 2, 4, 8, 16}) {
        const std::string name = host::toUtf8(store) + "/set_node_together/" + std::to_string(clients);
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { setNodeTogether(state, *project); })
            ->Threads(clients)
            ->Iterations(50)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    }
}

/// Whether a project can be made: for a store whose content is on a server, the user has to say where.
bool isUsable(const std::u16string& store) {
    try {
        const Project project(store, 1);
        project.open()->setPaths({MetadataPath()});
        return true;
    } catch (const project::metadata::MetadataWriteFailure&) {
        return false;
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    std::vector<std::u16string> stores;
    for (const auto& factory : project::metadata::getRegisteredFactories()) {
        if (isUsable(factory->getName()))
            stores.push_back(factory->getName());
    }
    for (const std::size_t count : std::initializer_list<std::size_t>{1000, 10'000, 100'000, 1'000'000}) {
        for (const std::u16string& store : stores)
            registerMeasures(store, count);
    }
    for (const std::u16string& store : stores)
        registerClients(store);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::ClearRegisteredBenchmarks();
}
