// A program with a global object that uses the library when it is destroyed, after everything that was made later, such
// as what the library made when main() used it first. Prints "as before" if the library then still does what it did.
// With the argument "stores" it uses these too, which come from the service framework: of the frameworks, only the
// embedded one outlives everybody who uses it.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/FileSystem.hpp"
#include "host/SettingsService.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "project/metadata/Uuid.hpp"

namespace {

using namespace project::metadata;

MetadataPath path(const char16_t* location) {
    return MetadataPath(std::vector<PathElement>{PathElement(u"Folder", location), PathElement(u"File", location)});
}

void show(std::ostream& out, const MetadataNode& node) {
    out << host::toUtf8(node.getName()) << '[' << host::toUtf8(node.get(u"key") + node.get(u"none")) << ']';
    for (const auto& child : node.getChildNodes())
        show(out, *child);
}

void useFiles(const host::Path& folder, std::ostream& answers) {
    logger().log(host::Severity::warning, "this is written twice");
    for (const std::u16string& name : getSupportedRoots())
        answers << host::toUtf8(name) << ' ';
    answers << host::toUtf8(getRootFromSettings()) << '\n';

    MetadataNodeSpecification node;
    node.put(u"key", u"\u00E4\u4E2D");
    node.createChildNode(u"Child").createChildNode();
    for (const char16_t* name : {u"one.xml", u"two.xml"}) {
        writeToFile(node, folder / name, false);
        show(answers, *readFromFile(folder / name));
    }
    try {
        readFromFile(folder / u"none.xml");
    } catch (const MetadataReadFailure& failure) {
        answers << failure.GetID() << '\n';
    }
}

void useStores(const host::Path& folder, std::ostream& answers) {
    MetadataNodeSpecification node;
    node.put(u"key", u"value");
    for (const auto& factory : getRegisteredFactories()) {
        const host::Path root = folder / host::Path(factory->getName());
        host::FileSystem::create_directories(root);
        if (dynamic_cast<const MetadataOptions*>(factory->createManager(root).get()))
            continue;  // which asks for a server
        factory->createManager(root)->setNode(path(u"x"), node);
        const auto store = getMetadataManagerFor(root);
        store->setPaths({path(u"y"), path(u"x")});
        answers << host::toUtf8(ProjectMetadataLocation(root).getMetadataType().value()) << ": ";
        for (const MetadataPath& each : store->getChildren({}))
            answers << host::toUtf8(each.string()) << ' ';
        show(answers, *store->getNode(path(u"x")));
        assignUuid(root, generateUUID());
        writeMetadataToSingleFile(root, root / u"all.xml");
        answers << '\n';
    }
}

/// Puts most of the library to use. @return what it answers, in one text
std::string use(bool withStores) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"end-of-process-", u"");
    const host::Path folder(scratch.getDirectoryName());
    std::ostringstream answers;
    useFiles(folder, answers);
    if (withStores)
        useStores(folder, answers);
    return answers.str();
}

struct Late {
    std::string before;
    bool withStores = false;

    ~Late() {
        try {
            const std::string now = use(withStores);
            std::cout << (now == before ? "as before\n" : "was:\n" + before + "is:\n" + now) << std::flush;
        } catch (const std::exception& error) {
            std::cout << error.what() << std::endl;
        }
    }
};

Late late;

}  // namespace

int main(int count, char* arguments[]) {
    late.withStores = count > 1 && arguments[1] == std::string_view("stores");
    late.before = use(late.withStores);
    return late.withStores && late.before.find("monolithic: ") == std::string::npos ? 1 : 0;
}
