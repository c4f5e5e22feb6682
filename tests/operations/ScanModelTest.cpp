// Random changes of a folder and random notes of people between scans, judged by a model that knows of every note where
// it has to be.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include "host/Text.hpp"
#include "operations/Scan.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;

/// A file, a folder, or a path that stands for neither. What is gone stays as long as there is a note at it or below.
struct Thing {
    bool isFolder = false;
    bool isOnDisk = false;
    bool isDescribed = false;  // at the last scan
    bool isMarked = false;     // as missing
    bool isRenamed = false;    // since the last scan: if it vanished now, nobody would know where it had been
    bool isLabel = false;
    std::string note;
    std::map<std::string, Thing> below;

    bool isNoted() const {
        return !note.empty() || isLabel ||
               std::any_of(below.begin(), below.end(), [](const auto& entry) { return entry.second.isNoted(); });
    }
};

bool hasRenamed(const Thing& thing) {
    return thing.isRenamed || std::any_of(thing.below.begin(), thing.below.end(),
                                          [](const auto& entry) { return hasRenamed(entry.second); });
}

struct Counts {
    int moved = 0, missing = 0, back = 0, removed = 0, edited = 0, partial = 0, settled = 0;
};

class ScanModel {
public:
    explicit ScanModel(unsigned seed) : random_(seed) {
        setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
        top_.isFolder = top_.isOnDisk = true;
        fs::create_directories(root());
        // Without that, a folder whose content has changed is another one under another name.
        struct statx status {};
        knowsBirths_ = statx(AT_FDCWD, root().c_str(), 0, STATX_BTIME, &status) == 0 && (status.stx_mask & STATX_BTIME);
        pm::getNamedFactory(seed % 2 == 0 ? u"fixedPath" : u"monolithic")
            ->createManager(test::toPath(root()))
            ->setPaths({pm::MetadataPath()});
    }

    fs::path root() const { return folder_ / "project"; }

    void step() {
        for (int i = pick(6); i >= 0; --i)
            changeDisk(top_, root());
        scan({});
        if (pick(2) == 0)
            scan({});  // which sees that there is nothing to do, and remembers where
        for (int i = pick(4); i > 0; --i)
            note(top_, pm::MetadataPath());
        // What happens in one folder, and a scan of that.
        std::vector<std::string> folders;
        for (const auto& [name, thing] : top_.below) {
            if (thing.isFolder && thing.isOnDisk)
                folders.push_back(name);
        }
        if (folders.empty() || pick(3) != 0)
            return;
        const std::string name = folders[static_cast<std::size_t>(pick(static_cast<int>(folders.size())))];
        changeDisk(top_.below.at(name), root() / name);
        ++counts.partial;
        scan(name);
    }

    Counts counts;

private:
    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

    std::string newName() { return "n" + std::to_string(++number_); }

    void write(const fs::path& file) {
        fs::remove(file);
        test::writeBytes(file, std::string(static_cast<std::size_t>(pick(3)), 'x'));
    }

    void changeDisk(Thing& folder, const fs::path& place) {
        std::vector<std::string> names;
        for (const auto& [name, thing] : folder.below) {
            if (!thing.isLabel)
                names.push_back(name);
        }
        if (names.empty() || pick(4) == 0) {
            const std::string name = newName();
            Thing& made = folder.below[name];
            made.isOnDisk = true;
            made.isFolder = pick(2) == 0;
            if (made.isFolder)
                fs::create_directory(place / name);
            else
                write(place / name);
            return;
        }
        const std::string name = names[static_cast<std::size_t>(pick(static_cast<int>(names.size())))];
        Thing& thing = folder.below.at(name);
        if (!thing.isOnDisk) {
            // It comes back, as another file.
            thing.isOnDisk = true;
            thing.isFolder ? static_cast<void>(fs::create_directory(place / name)) : write(place / name);
            ++counts.back;
            return;
        }
        if (thing.isFolder && pick(3) != 0)
            return changeDisk(thing, place / name);
        const int what = pick(3);
        if (what == 0 && !hasRenamed(thing)) {
            fs::remove_all(place / name);
            takeOffDisk(thing);
        } else if (what == 1 && !thing.isFolder && !thing.isRenamed) {
            write(place / name);
            ++counts.edited;
            // Somebody has replaced it: under another name nobody would know it again before the next scan.
            thing.isDescribed = false;
        } else if (what == 2 && thing.isDescribed && (!thing.isFolder || knowsBirths_)) {
            const std::string other = newName();
            fs::rename(place / name, place / other);
            thing.isRenamed = true;
            folder.below[other] = std::move(thing);
            folder.below.erase(name);
            ++counts.moved;
        }
    }

    static void takeOffDisk(Thing& thing) {
        thing.isOnDisk = thing.isDescribed = false;
        for (auto& [name, each] : thing.below)
            takeOffDisk(each);
    }

    /// Somebody writes something.
    void note(Thing& folder, const pm::MetadataPath& path) {
        const auto store = pm::getMetadataManagerFor(test::toPath(root()));
        if (folder.below.empty() || pick(5) == 0) {
            const std::string name = newName();
            Thing& made = folder.below[name];
            made.isLabel = pick(2) == 0;
            made.isFolder = !made.isLabel && pick(2) == 0;
            put(*store, made, below(path, name, made));
            return;
        }
        auto entry = std::next(folder.below.begin(), pick(static_cast<int>(folder.below.size())));
        const pm::MetadataPath there = below(path, entry->first, entry->second);
        if (entry->second.isFolder && pick(2) == 0)
            note(entry->second, there);
        else
            put(*store, entry->second, there);
    }

    void put(pm::MetadataManager& store, Thing& thing, const pm::MetadataPath& path) {
        thing.note = std::to_string(++number_);
        const auto node = store.getNode(path);
        pm::MetadataNodeSpecification noted;
        if (node)
            noted.copy(*node);
        noted.put(u"Note", host::fromUtf8(thing.note));
        store.setNode(path, noted);
    }

    static pm::MetadataPath below(const pm::MetadataPath& path, const std::string& name, const Thing& thing) {
        const char16_t* const type = thing.isLabel ? u"Label" : thing.isFolder ? u"Folder" : u"File";
        return pm::MetadataPathBuilder().add(path).add(type, host::fromUtf8(name)).build();
    }

    void scan(const std::string& part) {
        operations::ScanRequest request;
        if (!part.empty())
            request.folder = test::toPath(root() / part);
        request.heedGit = false;
        operations::Observer observer;
        const auto result = operations::scanInto(test::toPath(root()), request, observer);
        EXPECT_FALSE(result.notRemembered) << *result.notRemembered;
        counts.removed += static_cast<int>(result.change.change.removed.size());
        counts.settled += static_cast<int>(result.change.fingerprints.size());
        counts.missing += static_cast<int>(result.change.missing.size());
        std::map<std::string, std::string> expected;
        expect(top_, root(), {}, part, expected);
        EXPECT_EQ(readStore(), expected);
    }

    /// What the store has to hold; what it need not hold any more is forgotten.
    /// @param part the only one in `thing` that was scanned; empty for all
    void expect(Thing& thing, const fs::path& place, const pm::MetadataPath& path, const std::string& part,
                std::map<std::string, std::string>& expected) {
        for (auto entry = thing.below.begin(); entry != thing.below.end();) {
            const std::string& name = entry->first;
            Thing& child = entry->second;
            const bool isScanned = part.empty() || part == name;
            if (isScanned && !child.isOnDisk && !child.isNoted()) {
                entry = thing.below.erase(entry);
                continue;
            }
            const fs::path file = place / name;
            EXPECT_EQ(fs::exists(file), child.isOnDisk) << file;
            if (isScanned) {
                child.isMarked = !child.isLabel && !child.isOnDisk;
                child.isDescribed = child.isOnDisk;
                child.isRenamed = false;
            }
            std::string text = child.note;
            if (child.isMarked)
                text += " gone";
            else if (child.isDescribed)
                text += child.isFolder ? " folder" : " " + std::to_string(fs::file_size(file));
            const pm::MetadataPath there = below(path, name, child);
            expected[host::toUtf8(there.string())] = text;
            expect(child, file, there, isScanned ? "" : "none", expected);
            ++entry;
        }
    }

    std::map<std::string, std::string> readStore() const {
        std::map<std::string, std::string> found;
        const auto store = pm::getMetadataManagerFor(test::toPath(root()));
        std::vector<pm::MetadataPath> paths = store->getChildren({});
        for (std::size_t i = 0; i < paths.size(); ++i) {
            const pm::MetadataPath path = paths[i];
            if (path.string() == u"Folder:resources")
                continue;
            for (const pm::MetadataPath& child : store->getChildren(path))
                paths.push_back(child);
            const auto node = store->getNode(path);
            std::string text = node ? host::toUtf8(node->get(u"Note")) : "";
            if (node && node->get(u"Missing") == u"true")
                text += " gone";
            else if (node && node->get(u"Kind") == u"folder")
                text += " folder";
            else if (node && node->get(u"Kind") == u"file")
                text += " " + host::toUtf8(node->get(u"Size"));
            found[host::toUtf8(path.string())] = text;
        }
        return found;
    }

    std::mt19937 random_;
    int number_ = 0;
    bool knowsBirths_ = false;
    test::TempFolder folder_{test::memoryFolder()};
    Thing top_;
};

TEST(ScanModelTest, NothingThatPeopleWriteIsLost) {
    Counts all;
    for (unsigned seed = 0; seed < 10 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        ScanModel model(seed);
        for (int i = 0; i < 12 && !testing::Test::HasFailure(); ++i)
            model.step();
        all.moved += model.counts.moved;
        all.missing += model.counts.missing;
        all.back += model.counts.back;
        all.removed += model.counts.removed;
        all.edited += model.counts.edited;
        all.partial += model.counts.partial;
        all.settled += model.counts.settled;
    }
    // All ways were taken.
    EXPECT_GT(all.moved, 20);
    EXPECT_GT(all.missing, 20);
    EXPECT_GT(all.back, 8);
    EXPECT_GT(all.removed, 8);
    EXPECT_GT(all.edited, 8);
    EXPECT_GT(all.partial, 8);
    EXPECT_GT(all.settled, 20);
}

}  // namespace
