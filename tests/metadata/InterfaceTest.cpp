/// The binary interface: the order of virtual operations, the layout of errors, and the symbols that others see.
#include <cxxabi.h>

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

template <class... Operations>
std::vector<std::size_t> slotsOf(Operations... operations) {
    return {slotOf(operations)...};
}

/// Third place, fourth place and so on.
std::vector<std::size_t> afterTheDestructor(std::size_t count) {
    std::vector<std::size_t> slots;
    for (std::size_t slot = 3; slot < 3 + count; ++slot)
        slots.push_back(slot);
    return slots;
}

std::string demangled(const std::string& symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? name.get() : symbol;
}

/// The names of the symbols that libproject_metadata.so defines for others.
std::vector<std::string> exportedNames() {
    const std::unique_ptr<FILE, decltype(&pclose)> pipe(
        popen("nm --dynamic --defined-only --format=just-symbols '" METADATA_LIBRARY "'", "r"), &pclose);
    std::vector<std::string> names;
    char line[4096];
    while (pipe && std::fgets(line, sizeof line, pipe.get()))
        names.push_back(demangled(std::string(line, std::strcspn(line, "\n"))));
    return names;
}

}  // namespace

TEST(InterfaceTest, virtualOperationsStandInTheirPlaces) {
    EXPECT_EQ(slotsOf(&MetadataNode::get, &MetadataNode::put, &MetadataNode::getAttributeKeys, &MetadataNode::getName,
                      &MetadataNode::getChildNodes,
                      static_cast<MetadataNode& (MetadataNode::*)(std::u16string)>(&MetadataNode::createChildNode),
                      static_cast<MetadataNode& (MetadataNode::*)()>(&MetadataNode::createChildNode),
                      &MetadataNode::remove, &MetadataNode::copy),
              afterTheDestructor(9));
    EXPECT_EQ(slotsOf(&MetadataLocation::getDirectory, &MetadataLocation::getCoreFile, &MetadataLocation::hasCoreFile),
              afterTheDestructor(3));
    EXPECT_EQ(slotsOf(&MetadataManagerFactory::createManager, &MetadataManagerFactory::canManage,
                      &MetadataManagerFactory::getName, &MetadataManagerFactory::getDescription,
                      &MetadataManagerFactory::isHidden),
              afterTheDestructor(5));
    EXPECT_EQ(slotsOf(&MetadataManager::setNode, &MetadataManager::removeNode, &MetadataManager::addPath,
                      &MetadataManager::removePath, &MetadataManager::getNode, &MetadataManager::setNodes,
                      &MetadataManager::removePaths, &MetadataManager::hasNode, &MetadataManager::getChildren,
                      &MetadataManager::hasPath, &MetadataManager::setPaths),
              afterTheDestructor(11));
    EXPECT_EQ(slotsOf(&project::exception::ProjectException::what), afterTheDestructor(1));
}

TEST(InterfaceTest, anErrorIsFirstAHostsErrorAndThenAProjectException) {
    const MetadataReadFailure error(u"path", std::u16string(u"cause"));
    const auto* start = reinterpret_cast<const char*>(&error);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<const host::UserException*>(&error)), start);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<const project::exception::ProjectException*>(&error)),
              start + sizeof(host::UserException));
    EXPECT_EQ(host::StackTrace::capacity, 128u);
}

TEST(InterfaceTest, othersSeeTheInterfaceAndNothingElse) {
    const auto isAllowed = testing::MatchesRegex(
        "((typeinfo|typeinfo name|vtable) for )?(project::(metadata|exception)|computils::exception)::.*"
        "|(typeinfo|typeinfo name|vtable) for host::MessageException<KORVEX::project::metadata::.*");
    const std::vector<std::string> names = exportedNames();
    EXPECT_THAT(names, testing::Each(isAllowed));
    EXPECT_THAT(names, testing::Contains("project::metadata::handleReadOnlyFile(host::Path const&)"));
    EXPECT_THAT(names, testing::Contains("typeinfo for project::metadata::MetadataManagerFactory"));
    EXPECT_THAT(names, testing::Not(testing::Contains(testing::HasSubstr("removeFileOrFolder"))));
}
