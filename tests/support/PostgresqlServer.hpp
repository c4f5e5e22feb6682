/// A server of its own for the tests of the store "postgresql", from the system's packages, in a scratch folder.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/TempFolder.hpp"

namespace test {

/// A running server, reached by a Unix socket only, with the schemas that tests use. Belongs to the process that made
/// it, and dies with it.
class PostgresqlServer {
public:
    /// @param settings of the server besides, such as "fsync=on"; without that, nothing outlives the machine
    /// @param fileSizeLimit none of its files grows beyond so many bytes, as on a full disk; 0 for no limit
    explicit PostgresqlServer(std::vector<std::string> settings = {},
                              const std::filesystem::path& parent = memoryFolder(), rlim_t fileSizeLimit = 0);
    ~PostgresqlServer();

    PostgresqlServer(const PostgresqlServer&) = delete;
    PostgresqlServer& operator=(const PostgresqlServer&) = delete;

    /// Starts it again, and waits until it answers.
    void start();

    /// Stops it: in good order, but without waiting for clients; or like a machine that fails.
    void stop();
    void crash();

    /// Where its data, its log and its socket are.
    const std::filesystem::path& folder() const { return folder_.std(); }

    /// The name of the file of its socket.
    std::string socket() const { return (folder_ / ".s.PGSQL.5432").string(); }

    /// Runs statements as its superuser, all in one transaction. @return the first column of the rows of the last one,
    /// with blanks between
    std::string run(const std::string& sql) const;

    /// Lets this process find the server under the name of a service, with the user "postgres" if no other is named.
    void addService(const std::string& name, const std::string& user = "postgres");

    /// As that, with parameters of another server, such as "host=/tmp", one a line.
    static void addOtherService(const std::string& name, const std::string& parameters);

private:
    void runProgram(const std::vector<std::string>& command) const;
    pid_t startProgram(const std::vector<std::string>& command) const;
    void end(int signal);

    TempFolder folder_;
    std::vector<std::string> settings_;
    rlim_t fileSizeLimit_;
    pid_t owner_;
    pid_t server_ = -1;
};

/// Where the metadata of a project may be, in the settings of this process, as long as the object lives. The service
/// "test" always is, and where new projects are made.
class AllowedServers {
public:
    explicit AllowedServers(const std::string& servers);
    ~AllowedServers();

    AllowedServers(const AllowedServers&) = delete;
    AllowedServers& operator=(const AllowedServers&) = delete;
};

/// The server of the test program, which runs from the first test with "ostgresql" in its name.
PostgresqlServer& theServer();

}  // namespace test
