/// Addresses of nodes. Replaces operator new of the whole process to count allocations.
#include "project/metadata/MetadataPath.hpp"

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>

#include <gtest/gtest.h>

using namespace project::metadata;

namespace {

std::atomic<std::size_t> allocations{0};

MetadataPath path(std::initializer_list<PathElement> elements) {
    return MetadataPath(elements);
}

/// Paths of up to three steps from texts so short and so full of separators that many share parts, and texts.
std::vector<MetadataPath> somePaths(std::size_t count) {
    std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed): the same paths in every run
    const auto text = [&] {
        std::u16string result(random() % 4, u' ');
        for (char16_t& unit : result)
            unit = u"aa:|!\uFFFD"[random() % 6];
        return result;
    };
    std::vector<MetadataPath> paths(1);
    while (paths.size() < count) {
        MetadataPathBuilder builder;
        for (auto steps = random() % 4; steps > 0; --steps)
            builder.add(text(), text());
        paths.push_back(builder.build());
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

TEST(MetadataPathTest, elementsAreOrderedByTypeAndThenByLocation) {
    const PathElement ascending[] = {{u"", u"z"},  {u"s", u"z"}, {u"t", u""}, {u"t", u"a"},
                                     {u"t", u"b"}, {u"ta", u""}, {u"ä", u""}, {u"\uFFFD", u""}};
    for (const PathElement& a : ascending) {
        for (const PathElement& b : ascending) {
            EXPECT_EQ(a < b, &a < &b);
            EXPECT_EQ(a == b, &a == &b);
            EXPECT_EQ(a != b, &a != &b);
        }
    }
    EXPECT_EQ(ascending[3].getType(), u"t");
    EXPECT_EQ(ascending[3].getLocation(), u"a");
}

TEST(MetadataPathTest, theTextJoinsTheStepsWithoutEscaping) {
    EXPECT_EQ(MetadataPath().string(), u"");
    EXPECT_EQ(path({{u"t", u"a"}}).string(), u"t:a");
    EXPECT_EQ(path({{u"t", u"a"}, {u"u", u"b"}}).string(), u"t:a|u:b");
    EXPECT_EQ(path({{u"", u""}}).string(), u":");
    EXPECT_EQ(path({{u"", u""}, {u"", u""}}).string(), u":|:");
    EXPECT_EQ(path({{u"a", u"b|"}}).string(), u"a:b|");
}

TEST(MetadataPathTest, equalityIsThatOfTheSteps) {
    const std::vector<MetadataPath> different{{},
                                              path({{u"t", u"a"}}),
                                              path({{u"t", u"a"}, {u"u", u"b"}}),
                                              path({{u"u", u"b"}, {u"t", u"a"}}),
                                              path({{u"x", u"a:b"}}),
                                              path({{u"x:a", u"b"}}),
                                              path({{u"", u""}}),
                                              path({{u"t", u"a|u:b"}})};
    for (const MetadataPath& a : different) {
        for (const MetadataPath& b : different) {
            EXPECT_EQ(a == b, &a == &b);
            EXPECT_EQ(a != b, &a != &b);
        }
        EXPECT_EQ(MetadataPath(a.getPath()), a);
    }
}

TEST(MetadataPathTest, theOrderIsThatOfTheTextsAndAllocatesNothing) {
    const std::vector<MetadataPath> paths = somePaths(1500);
    std::vector<std::u16string> texts;
    for (const MetadataPath& path : paths)
        texts.push_back(path.string());

    const std::size_t before = allocations;
    std::size_t wrong = 0;
    std::size_t equivalent = 0;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        for (std::size_t j = 0; j < paths.size(); ++j) {
            wrong += (paths[i] < paths[j]) != (texts[i] < texts[j]);
            equivalent += texts[i] == texts[j] && paths[i] != paths[j];
        }
    }
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(equivalent, 0u) << "different paths with one text belong to the test";

    path({{u"a step that is too long", u"for a string without memory"}}).string();
    EXPECT_GT(allocations, before) << "allocations are not counted";
}

TEST(MetadataPathTest, theParentIsTheOneStepAboveByItsText) {
    const MetadataPath root;
    const MetadataPath q = path({{u"f", u"a"}});
    const MetadataPath p = path({{u"f", u"a"}, {u"g", u"b"}});
    EXPECT_EQ(p.getLeaf(), PathElement(u"g", u"b"));
    EXPECT_EQ(p.getParent(), q);
    EXPECT_EQ(q.getParent(), root);
    EXPECT_TRUE(p.isParent(q));
    EXPECT_TRUE(q.isParent(root));
    EXPECT_FALSE(p.isParent(root));
    EXPECT_FALSE(p.isParent(p));
    EXPECT_FALSE(q.isParent(p));

    const std::vector<MetadataPath> paths = somePaths(300);
    for (const MetadataPath& child : paths) {
        for (const MetadataPath& parent : paths) {
            if (child != root) {
                ASSERT_EQ(child.isParent(parent), child.getParent().string() == parent.string());
            }
        }
    }
}

TEST(MetadataPathTest, theBuilderKeepsItsSteps) {
    MetadataPathBuilder builder;
    EXPECT_EQ(builder.build(), MetadataPath());
    EXPECT_EQ(&builder.add(u"t", u"a"), &builder);
    EXPECT_EQ(&builder.add(path({{u"u", u"b"}, {u"v", u"c"}})), &builder);
    builder.add(MetadataPath());
    EXPECT_EQ(builder.build().string(), u"t:a|u:b|v:c");
    EXPECT_EQ(builder.build(), builder.build());
    EXPECT_EQ(builder.add(u"", u"").build().string(), u"t:a|u:b|v:c|:");
    EXPECT_EQ(MetadataPathBuilder().add(builder.build()).build(), builder.build());
}
