/// follow_changes FOLDER: a program that is told before and after each change which files it is about, and that can
/// refuse a change.

#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include "host/FileSystem.hpp"
#include "host/ServiceFramework.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileJobManager.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace pm = project::metadata;

using Paths = std::vector<host::Path>;

namespace {

void print(const char* what, const Paths& files) {
    for (const host::Path& file : files)
        std::cout << what << ' ' << file.accessName() << '\n';
}

/// Lives as long as the change that it was returned for, whether that ends well or not: the place to undo what was done
/// for the change, such as stopping to watch the files.
class UntilTheEnd : public pm::ChangeGuard {
public:
    ~UntilTheEnd() override { std::cout << "done\n"; }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    bool isPrinting = false;

    // The stores look for this service at every change.
    const auto manager = std::make_shared<pm::FileJobManager>();
    const auto registration =
        host::ServiceFramework::getFramework()->GetBundleContext().RegisterService<pm::FileJobManager>(manager);
    manager->onPreWrite([&](const Paths& created, const Paths& modified, const Paths& deleted) {
        if (isPrinting)
            throw std::runtime_error("the project is being printed");
        print("will be new", created);
        print("will change", modified);
        print("will go", deleted);
        return std::make_shared<UntilTheEnd>();
    });
    manager->onPostWrite([](const Paths& created, const Paths& modified, const Paths& deleted) {
        print("is new", created);
        print("has changed", modified);
        print("has gone", deleted);
        return nullptr;
    });

    const host::Path folder = host::Path::fromAccessName(argv[1]);
    host::FileSystem::create_directories(folder);
    const auto store = pm::getNamedFactory(u"fixedPath")->createManager(folder);
    const pm::MetadataPath source = pm::MetadataPathBuilder().add(u"Folder", u"src").build();
    store->setNode(source, pm::MetadataNodeSpecification(u"Info"));

    isPrinting = true;
    try {
        store->removePath(source);
    } catch (const std::exception& error) {
        std::cout << "refused: " << error.what() << '\n';
    }

    isPrinting = false;
    store->removePath(source);
}
