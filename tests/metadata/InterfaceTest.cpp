/// The binary interface: the order of virtual operations, the layout of errors, and the symbols that others see.
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

#include <gmock/gmock.h>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataLocation.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"
#include "project/metadata/MetadataNode.hpp"

using namespace project::metadata;

namespace {

/// The place of a virtual operation in its table, from 1. The Itanium C++ ABI represents a pointer to one as its
/// offset in the table plus 1. The destructor has the first two places.
template <class Class, class Result, class... Arguments>
std::size_t slotOf(Result (Class::*operation)(Arguments...)) {
    std::array<std::size_t, 2> words{};
    static_assert(sizeof words == sizeof operation);
    std::memcpy(words.data(), &operation, sizeof operation);
    EXPECT_EQ(words[0] % sizeof(void*), 1u) << "not virtual";
    return words[0] / sizeof(void*) + 1;
}

template <class Class, class Result, class... Arguments>
std::size_t slotOf(Result (Class::*operation)(Arguments...) const) {
    return slotOf(reinterpret_cast<Result (Class::*)(Arguments...)>(operation));
}

/// Whether the operations stand in the third place, the fourth place and so on, after the destructor.
template <class... Operations>
void expectInOrder(Operations... operations) {
    std::size_t place = 2;
    EXPECT_TRUE(((slotOf(operations) == ++place) && ...)) << "place " << place;
}

/// The names of the symbols that libproject_metadata.so defines for others.
std::vector<std::string> exportedNames() {
    const std::unique_ptr<FILE, decltype(&pclose)> pipe(
        popen("nm --dynamic --defined-only --demangle --format=just-symbols '" METADATA_LIBRARY "'", "r"), &pclose);
    std::vector<std::string> names;
    char line[4096];
    while (pipe && std::fgets(line, sizeof line, pipe.get()))
        names.emplace_back(line, std::strcspn(line, "\n"));
    return names;
}

}  // namespace

TEST(InterfaceTest, virtualOperationsStandInTheirPlaces) {
    expectInOrder(&MetadataNode::get, &MetadataNode::put, &MetadataNode::getAttributeKeys, &MetadataNode::getName,
                  &MetadataNode::getChildNodes,
                  static_cast<MetadataNode& (MetadataNode::*)(std::u16string)>(&MetadataNode::createChildNode),
                  static_cast<MetadataNode& (MetadataNode::*)()>(&MetadataNode::createChildNode), &MetadataNode::remove,
                  &MetadataNode::copy);
    expectInOrder(&MetadataLocation::getDirectory, &MetadataLocation::getCoreFile, &MetadataLocation::hasCoreFile);
    expectInOrder(&MetadataManagerFactory::createManager, &MetadataManagerFactory::canManage,
                  &MetadataManagerFactory::getName, &MetadataManagerFactory::getDescription,
                  &MetadataManagerFactory::isHidden);
    expectInOrder(&MetadataManager::setNode, &MetadataManager::removeNode, &MetadataManager::addPath,
                  &MetadataManager::removePath, &MetadataManager::getNode, &MetadataManager::setNodes,
                  &MetadataManager::removePaths, &MetadataManager::hasNode, &MetadataManager::getChildren,
                  &MetadataManager::hasPath, &MetadataManager::setPaths);
}

TEST(InterfaceTest, othersSeeTheInterfaceAndNothingElse) {
    const auto isAllowed = testing::MatchesRegex(
        "((typeinfo|typeinfo name|vtable) for )?(project::(metadata|exception)|computils::exception)::.*"
        "|(typeinfo|typeinfo name|vtable) for host::MessageException<KORVEX::project::metadata::.*"
        "|((typeinfo|typeinfo name|vtable) for )?host::Interrupt(ion|edException).*");
    const std::vector<std::string> names = exportedNames();
    EXPECT_THAT(names, testing::Each(isAllowed));
    EXPECT_THAT(names, testing::Contains("project::metadata::handleReadOnlyFile(host::Path const&)"));
    for (const char* error :
         {"ReadOnlyMetadataFailure", "MetadataWriteFailure", "FailedToMakeMetadataWritable", "ListChildFilesFailure",
          "MetadataReadFailure", "PutMetadataKeyFailure", "PutMetadataValueFailure"}) {
        // One type for all who catch it, whichever library they are in.
        const std::string type = "host::MessageException<KORVEX::project::metadata::" + std::string(error) +
                                 ", project::exception::ProjectException>";
        EXPECT_THAT(names, testing::Contains("typeinfo for " + type));
        EXPECT_THAT(names, testing::Contains("typeinfo for project::metadata::detail::NestedError<" + type + " >"));
    }
}
