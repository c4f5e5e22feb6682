/// Addresses of nodes. Replaces operator new of the whole process to count allocations.
#include "project/metadata/MetadataPath.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

using namespace project::metadata;

namespace {

std::atomic<std::size_t> allocations{0};

/// The paths of up to two steps from texts that hold the separators and what sorts before and after them.
std::vector<MetadataPath> allShortPaths() {
    const std::u16string texts[] = {u"", u"a", u":", u"|", u"!", u"\uFFFD"};
    std::vector<PathElement> steps;
    for (const std::u16string& type : texts) {
        for (const std::u16string& location : texts)
            steps.emplace_back(type, location);
    }
    std::vector<MetadataPath> paths(1);
    for (const PathElement& first : steps) {
        paths.push_back(MetadataPath(std::vector{first}));
        for (const PathElement& second : steps)
            paths.push_back(MetadataPath(std::vector{first, second}));
    }
    return paths;
}

}  // namespace

// Not inlined, or the compiler takes malloc and free for a mismatched pair with the operators of others.
__attribute__((noinline)) void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

TEST(MetadataPathTest, orderAndParentGoByTheTextsAndTheOrderAllocatesNothing) {
    const std::vector<MetadataPath> paths = allShortPaths();
    std::vector<std::u16string> texts;
    for (const MetadataPath& path : paths)
        texts.push_back(path.string());
    EXPECT_EQ(texts[2], u":|:") << "steps are joined without escaping";

    const std::size_t before = allocations;
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        for (std::size_t j = 0; j < paths.size(); ++j)
            wrong += (paths[i] < paths[j]) != (texts[i] < texts[j]);
    }
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(wrong, 0u);
    for (std::size_t i = 1; i < paths.size(); ++i) {
        for (std::size_t j = 0; j < 50; ++j)
            EXPECT_EQ(paths[i].isParent(paths[j]), paths[i].getParent().string() == texts[j]);
    }
    EXPECT_GT(allocations, before) << "allocations are not counted";
}
