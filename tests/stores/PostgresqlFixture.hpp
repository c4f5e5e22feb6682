#pragma once

// A project in the store "postgresql", on the server of the tests.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "stores/postgresql/PostgresqlManager.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/PostgresqlServer.hpp"
#include "tests/support/TempFolder.hpp"

namespace test {

using Clock = std::chrono::steady_clock;

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class PostgresqlFixture : public testing::Test {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(u"postgresql", folder_.path()); }

    /// A store that waits for nobody for long.
    std::unique_ptr<MetadataManager> openImpatient(std::chrono::milliseconds limit) const {
        const auto runJob = [](project::metadata::FileJob job) { job.run(); };
        return std::make_unique<stores::postgresql::PostgresqlManager>(toPath(folder_ / "resources/project"), runJob,
                                                                       limit);
    }

    std::filesystem::path coreFile() const { return folder_ / "resources/project/Project.xml"; }

    /// The value of an attribute of the core file.
    std::string core(const std::string& key) const {
        const std::string text = readBytes(coreFile());
        const std::size_t begin = text.find(key + "=\"") + key.size() + 2;
        return text.substr(begin, text.find('"', begin) - begin);
    }

    void changeCore(const std::string& key, const std::string& value) const {
        std::string text = readBytes(coreFile());
        const std::string before = key + "=\"" + core(key);
        text.replace(text.find(before), before.size(), key + "=\"" + value);
        // Another file, as everybody replaces it.
        writeBytes(folder_ / "new", text);
        std::filesystem::rename(folder_ / "new", coreFile());
    }

    /// Runs a statement about the project, which it calls $project.
    std::string run(std::string sql) const {
        const std::string name = "$project";
        for (std::size_t at = sql.find(name); at != sql.npos; at = sql.find(name))
            sql.replace(at, name.size(), '\'' + core("Project") + '\'');
        return theServer().run("SET search_path = project_metadata; " + sql);
    }

    /// Expects that an error names the file, the server, the project and the cause.
    void expectNamed(const std::string& message, const std::string& cause) const {
        for (const std::string& part :
             {coreFile().string(), "service \"" + core("Service") + '"', core("Project"), cause})
            EXPECT_TRUE(contains(message, part)) << part << " in " << message;
    }

    TempFolder folder_;
};

}  // namespace test
