/// What is done with sudo: a project stays its owner's. Tests that run as another user see that this changes nothing.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::run;

class OwnerTest : public test::ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    OwnerTest() {
        const uid_t nobody = 65534;
        owner_ = geteuid() == 0 ? nobody : geteuid();
        EXPECT_EQ(chown(root.c_str(), owner_, geteuid() == 0 ? nobody : getegid()), 0);
    }

    void succeed(std::vector<std::string> line) const {
        line.insert(line.end(), {"-q", "-C", root});
        const test::Outcome outcome = run(line);
        EXPECT_EQ(outcome.status, 0) << line.front() << ": " << outcome.err;
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            struct stat status {};
            EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
            EXPECT_EQ(status.st_uid, owner_) << entry.path() << " after " << line.front();
        }
    }

    uid_t owner_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Stores, OwnerTest, testing::Values("fixedPath", "monolithic", "sqlite"), test::nameOfStore);

TEST_P(OwnerTest, whatTheSuperuserMakesAndReplacesBelongsToTheOwnerOfTheProject) {
    succeed({"init", "--store", GetParam()});
    succeed({"set", "--create", "T:a|T:b", "k=v"});
    succeed({"set", "T:a|T:b", "k=w"});
    succeed({"set", "--create", "U:c", "k=v"});
    succeed({"move", "T:a", "T:d"});
    succeed({"uuid", "--new"});
    EXPECT_EQ(run({"export", root, "-o", folder / "out.xml"}).status, 0);
    succeed({"import", folder / "out.xml", "--replace"});
    for (const char* const store : {"sqlite", "fixedPath", "monolithic"}) {
        if (std::string(store) != GetParam())
            succeed({"convert", "--store", store});
    }
    test::Surroundings nobody;
    nobody.prefix = test::movedInstallation();
    nobody.prepare = test::becomeUnprivileged;
    EXPECT_EQ(run({"set", root, "T:d|T:b", "k=x"}, nobody).status, 0);
    EXPECT_EQ(run({"set", "--create", root, "T:e", "k=x"}, nobody).status, 0);
}

}  // namespace
