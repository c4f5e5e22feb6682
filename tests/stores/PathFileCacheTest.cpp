// What the cache of "fixedPath" forgets, by the sizes that files are said to have: no memory is needed for them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "stores/fixed_path/PathFileCache.hpp"

using namespace stores::fixed_path;

namespace {

const host::Path place(u"/project/Folder=src.xml");

/// The file with that inode, said to have 10 MB, of which 6 young ones are enough to make the others old.
PathFilePtr makeFile(std::uint64_t inode) {
    PathFile content;
    content.node = std::make_shared<project::metadata::MetadataNodeSpecification>(u"Info");
    content.hasNode = true;
    content.version = {inode, 10 << 20, 1, 1};
    return std::make_shared<const PathFile>(content);
}

/// Which of the files 1 to `count` are known, as a digit each.
std::string findKnown(const PathFileCache& cache, std::uint64_t count) {
    std::string known;
    for (std::uint64_t inode = 1; inode <= count; ++inode)
        known += cache.hasInode(inode) ? '1' : '0';
    return known;
}

TEST(PathFileCacheTest, WhatWasReadAheadIsKeptUntilItIsAskedFor) {
    PathFileCache cache;
    for (std::uint64_t inode = 1; inode <= 20; ++inode)
        cache.insertAhead(place, makeFile(inode));
    for (std::uint64_t inode = 21; inode <= 40; ++inode)
        cache.insert(place, makeFile(inode));
    EXPECT_EQ(findKnown(cache, 40), "1111111111111111111100000001111111111111");
    // Once asked for it is forgotten as everything else.
    EXPECT_TRUE(cache.find(1, 1));
    EXPECT_TRUE(cache.find(place, {2, 10 << 20, 1, 1}));
    EXPECT_FALSE(cache.find(3, 2));
    EXPECT_EQ(cache.find(20, 1), cache.find(20, 1));
    for (std::uint64_t inode = 41; inode <= 60; ++inode)
        cache.insert(place, makeFile(inode));
    EXPECT_EQ(findKnown(cache, 20), "00011111111111111110");
}

TEST(PathFileCacheTest, WhatIsReadAheadHasALimit) {
    PathFileCache cache;
    for (std::uint64_t inode = 1; inode <= 60; ++inode)
        cache.insertAhead(place, makeFile(inode));
    EXPECT_EQ(findKnown(cache, 60), std::string(60, '1'));
    for (std::uint64_t inode = 61; inode <= 80; ++inode)
        cache.insertAhead(place, makeFile(inode));
    EXPECT_EQ(findKnown(cache, 60), std::string(49, '1') + std::string(11, '0'));
    // A file that was replaced makes room, and a new version takes the place of the old one.
    cache.erase(1);
    cache.insertAhead(place, makeFile(2));
    for (std::uint64_t inode = 81; inode <= 100; ++inode)
        cache.insertAhead(place, makeFile(inode));
    EXPECT_EQ(findKnown(cache, 60), '0' + std::string(48, '1') + std::string(11, '0'));
    EXPECT_TRUE(cache.hasInode(81));
}

TEST(PathFileCacheTest, WhenNothingIsWaitedForTheUsualLimitHolds) {
    PathFileCache cache;
    for (std::uint64_t inode = 1; inode <= 40; ++inode)
        cache.insertAhead(place, makeFile(inode));
    cache.endReading();
    const std::string known = findKnown(cache, 40);
    EXPECT_EQ(std::count(known.begin(), known.end(), '1'), 12) << known;
    for (std::uint64_t inode = 41; inode <= 80; ++inode)
        cache.insertAhead(place, makeFile(inode));
    EXPECT_EQ(findKnown(cache, 80).substr(40), std::string(40, '1'));
}

}  // namespace
