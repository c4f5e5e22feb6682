/// The life of a scratch folder.
#include "host/TempDirGuard.hpp"

#include "host/FileSystem.hpp"
#include "tests/host/CapturedLog.hpp"
#include "tests/host/Helpers.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

namespace fs = std::filesystem;
using host::TempDirGuard;
using test::TempFolder;

namespace {

fs::path folderOf(const TempDirGuard& guard) {
    return test::toStd(guard.getDirectoryName());
}

TEST(TempDirGuard, FolderIsNewAndPrivate) {
    const TempFolder parent;
    const mode_t mask = umask(0);
    std::set<std::u16string> names;
    for (int i = 0; i < 50; ++i) {
        const TempDirGuard guard(parent.path().text(), u"pre", u".suf");
        const fs::path folder = folderOf(guard);
        EXPECT_EQ(folder.parent_path(), parent.std());
        EXPECT_TRUE(fs::is_empty(folder));
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
        const std::string name = folder.filename();
        EXPECT_EQ(name.substr(0, 3) + name.substr(name.size() - 4), "pre.suf");
        EXPECT_GT(name.size(), 20U);
        names.insert(guard.getDirectoryName());
    }
    umask(mask);
    EXPECT_EQ(names.size(), 50U);
    EXPECT_TRUE(fs::is_empty(parent.std()));
}

TEST(TempDirGuard, FolderGoesOnEveryWayOut) {
    const TempFolder parent;
    test::writeBytes(parent / "kept/file", "");
    const fs::path before = fs::current_path();
    try {
        fs::current_path(parent.std());
        const TempDirGuard guard(u"", u"", u"");
        fs::current_path(before);
        test::writeBytes(folderOf(guard) / "a/\xE4/file", "");
        fs::create_directory_symlink(parent / "kept", folderOf(guard) / "link");
        throw std::runtime_error("on the way");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "on the way");
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(parent.std()), {}), 1);
    EXPECT_TRUE(fs::exists(parent / "kept/file"));

    const TempDirGuard removedAlready(parent.path().text(), u"", u"");
    fs::remove(folderOf(removedAlready));
}

TEST(TempDirGuard, FailuresToRemoveAreLogged) {
    const TempFolder parent;
    const test::CapturedLog log;
    const test::UnprivilegedUser user;
    auto guard = std::make_unique<TempDirGuard>(parent.path().text(), u"", u"");
    const fs::path folder = folderOf(*guard);
    test::writeBytes(folder / "closed/file", "");
    fs::permissions(folder / "closed", fs::perms(0555));
    guard.reset();
    EXPECT_EQ(log.text().find("8 host "), 0U);
    EXPECT_NE(log.text().find(folder / "closed/file"), std::string::npos) << log.text();
    EXPECT_TRUE(fs::exists(folder / "closed/file"));
    fs::permissions(folder / "closed", fs::perms(0755));
}

TEST(TempDirGuard, AFolderThatCannotBeMadeIsAnError) {
    const TempFolder parent;
    fs::create_directory(parent / "closed");
    fs::permissions(parent / "closed", fs::perms(0555));
    const auto make = [&](const char* name) { const TempDirGuard guard(test::toPath(parent / name).text(), u"", u""); };
    EXPECT_THROW(make("missing"), host::FileSystemException);
    const test::UnprivilegedUser user;
    EXPECT_EQ(test::catchError<host::AccessDeniedException>([&] { make("closed"); }).path().parentPath(),
              test::toPath(parent / "closed"));
}

}  // namespace
