// The export of a whole project of the store "monolithic" into one file, next to reading and writing that file.

#include <filesystem>
#include <map>

#include "benchmarks/Benchmarks.hpp"
#include "benchmarks/Generated.hpp"
#include "benchmarks/Measuring.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/SingleFileExport.hpp"

namespace benchmarks {

namespace {

using project::metadata::MetadataNode;
using project::metadata::MetadataPath;

/// The root folder of a project with `count` nodes, made when it is first needed.
host::Path projectOf(std::size_t count) {
    const host::Path root = scratchFolder() / (u"project" + number(count));
    if (!std::filesystem::exists(root.accessName())) {
        const std::vector<MetadataPath> paths = makePaths(count);
        std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
        for (std::size_t i = 0; i < paths.size(); ++i)
            nodes[paths[i]] = makeNode(i);
        const auto store = project::metadata::getNamedFactory(u"monolithic")->createManager(root);
        store->setNodes(nodes);
        store->setPaths(paths);
    }
    return root;
}

void exportProject(const host::Path& root, const host::Path& target) {
    project::metadata::writeMetadataToSingleFile(root, target);
}

void readAndWriteFile(const host::Path& root, const host::Path& target) {
    const auto node = project::metadata::readFromFile(root / u"resources/project/Project.xml");
    project::metadata::writeToFile(*node, target, false);
}

template <class Work>
void exportWith(benchmark::State& state, std::size_t count, const Work& work) {
    const host::Path root = projectOf(count);
    const host::Path target = scratchFolder() / u"exported.xml";
    for (auto _ : state) {
        std::filesystem::remove(target.accessName());
        timed(state, [&] { work(root, target); });
    }
}

}  // namespace

void addExportBenchmarks() {
    for (const std::size_t count : {10000U, 100000U}) {
        const std::string name = "export/" + std::to_string(count);
        add(name + "/project_metadata", 1, [=](auto& state) { exportWith(state, count, exportProject); });
        add(name + "/read_and_write", 1, [=](auto& state) { exportWith(state, count, readAndWriteFile); });
    }
}

}  // namespace benchmarks
