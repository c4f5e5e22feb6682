/// The life of a scratch folder.
#include "host/TempDirGuard.hpp"

#include "host/FileSystem.hpp"
#include "tests/support/TempFolder.hpp"

namespace fs = std::filesystem;
using host::TempDirGuard;

TEST(TempDirGuard, FolderIsNewAndPrivateAndGoesOnEveryWayOut) {
    const test::TempFolder parent;
    test::writeBytes(parent / "kept/file", "");
    const mode_t mask = umask(0);
    try {
        const TempDirGuard guard(parent.path().text(), u"pre", u".suf");
        const TempDirGuard another(parent.path().text(), u"pre", u".suf");
        const fs::path folder = test::toStd(guard.getDirectoryName());
        EXPECT_EQ(folder.parent_path(), parent.std());
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
        test::writeBytes(folder / "a/\xE4/file", "");
        fs::create_directory_symlink(parent / "kept", folder / "link");
        throw std::runtime_error("on the way");
    } catch (const std::runtime_error&) {
        umask(mask);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(parent.std()), {}), 1);
    EXPECT_TRUE(fs::exists(parent / "kept/file"));
    EXPECT_THROW(TempDirGuard((parent.path() / u"missing").text(), u"", u""), host::FileSystemException);
}
