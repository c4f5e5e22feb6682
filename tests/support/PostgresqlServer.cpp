#include "tests/support/PostgresqlServer.hpp"

#include <libpq-fe.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>

#include "tests/support/ServerSession.hpp"

namespace test {

namespace {

constexpr unsigned nobody = 65534;  // the server refuses to be the superuser's

using Connection = std::unique_ptr<PGconn, decltype(&PQfinish)>;

Connection connect(const std::filesystem::path& folder) {
    const std::string parameters = "user=postgres dbname=postgres host=" + folder.string();
    return {PQconnectdb(parameters.c_str()), PQfinish};
}

}  // namespace

PostgresqlServer::PostgresqlServer(std::vector<std::string> settings, const std::filesystem::path& parent,
                                   rlim_t fileSizeLimit)
    : folder_(parent), settings_(std::move(settings)), fileSizeLimit_(fileSizeLimit), owner_(getpid()) {
    if (geteuid() == 0 && chown(folder().c_str(), nobody, nobody) != 0)
        throw std::runtime_error("cannot give a folder away");
    runProgram({"initdb", "--pgdata=" + (folder_ / "data").string(), "--username=postgres", "--auth=trust", "--no-sync",
                "--encoding=UTF8", "--locale=C", "--wal-segsize=1"});
    start();
    run("CREATE SCHEMA project_metadata");
}

PostgresqlServer::~PostgresqlServer() {
    if (getpid() == owner_ && server_ > 0)
        end(SIGQUIT);
}

void PostgresqlServer::start() {
    std::vector<std::string> command{"postgres", "-D", (folder_ / "data").string(), "-k", folder().string()};
    std::vector<std::string> settings{"listen_addresses=",  "fsync=off",           "full_page_writes=off",
                                      "max_connections=64", "shared_buffers=64MB", "logging_collector=off"};
    settings.insert(settings.end(), settings_.begin(), settings_.end());
    for (const std::string& setting : settings)
        command.insert(command.end(), {"-c", setting});
    server_ = startProgram(command);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (PQstatus(connect(folder()).get()) != CONNECTION_OK) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("the server does not start: " + readBytes(folder_ / "log"));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void PostgresqlServer::stop() {
    end(SIGINT);
}

void PostgresqlServer::crash() {
    end(SIGQUIT);
}

void PostgresqlServer::end(int signal) {
    kill(server_, signal);
    waitpid(server_, nullptr, 0);
    server_ = -1;
}

std::string PostgresqlServer::run(const std::string& sql) const {
    const Connection connection = connect(folder());
    const std::unique_ptr<PGresult, decltype(&PQclear)> result(PQexec(connection.get(), sql.c_str()), PQclear);
    const ExecStatusType status = PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        throw std::runtime_error(PQerrorMessage(connection.get()));
    std::string text;
    for (int row = 0; row < PQntuples(result.get()); ++row)
        text += (row > 0 ? " " : "") + std::string(PQgetvalue(result.get(), row, 0));
    return text;
}

void PostgresqlServer::addService(const std::string& name, const std::string& user) {
    addOtherService(name, "host=" + folder().string() + "\nuser=" + user + "\ndbname=postgres");
}

void PostgresqlServer::addOtherService(const std::string& name, const std::string& parameters) {
    const std::string file = std::getenv("PGSERVICEFILE");
    writeBytes(file, readBytes(file) + '[' + name + "]\n" + parameters + '\n');
}

void PostgresqlServer::runProgram(const std::vector<std::string>& command) const {
    int status = 0;
    if (waitpid(startProgram(command), &status, 0) < 0 || status != 0)
        throw std::runtime_error(command.front() + " failed: " + readBytes(folder_ / "log"));
}

pid_t PostgresqlServer::startProgram(const std::vector<std::string>& command) const {
    const std::string program = POSTGRESQL_PROGRAMS "/" + command.front();
    const std::string log = folder_ / "log";
    // By its name alone, a program would look for itself and the others in PATH, where they need not be.
    std::vector<char*> arguments{const_cast<char*>(program.c_str())};
    for (std::size_t i = 1; i < command.size(); ++i)
        arguments.push_back(const_cast<char*>(command[i].c_str()));
    arguments.push_back(nullptr);
    const pid_t id = fork();
    if (id < 0)
        throw std::runtime_error("cannot fork");
    if (id > 0)
        return id;
    const bool isOther = geteuid() != 0 || (setgid(nobody) == 0 && setuid(nobody) == 0);
    prctl(PR_SET_PDEATHSIG, SIGQUIT);
    if (fileSizeLimit_ > 0) {
        const rlimit limit{fileSizeLimit_, fileSizeLimit_};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    const bool isLogged = freopen(log.c_str(), "a", stdout) != nullptr && dup2(1, 2) == 2;
    if (isOther && isLogged && chdir("/") == 0)
        execv(program.c_str(), arguments.data());
    _exit(127);
}

namespace {

PostgresqlServer* server = nullptr;

void writeSettings(const std::string& servers) {
    writeBytes(std::getenv("PROJECT_METADATA_SETTINGS"),
               "[korvex.project.metadata.postgresql]\nAllowedServers = " + servers + '\n');
}

/// Whether a test of the store is going to run.
bool isNeeded() {
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const testing::TestInfo& info = *suite.GetTestInfo(j);
            const std::string name = std::string(suite.name()) + '.' + info.name();
            if (info.should_run() && name.find("ostgresql") != std::string::npos)
                return true;
        }
    }
    return false;
}

class ServerEnvironment : public testing::Environment {
public:
    void SetUp() override {
        if (!isNeeded())
            return;
        server = new PostgresqlServer;
        setenv("PGSERVICEFILE", (server->folder() / "services").c_str(), 1);
        setenv("PROJECT_METADATA_SETTINGS", (server->folder() / "settings.ini").c_str(), 1);
        writeBytes(std::getenv("PGSERVICEFILE"), "");
        writeSettings("test");
        server->addService("test");
        waitForSessions = [] {
            while (server->run("SELECT count(*) FROM pg_stat_activity WHERE application_name = 'project_metadata'") !=
                   "0")
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        };
    }
    void TearDown() override {
        delete server;
        server = nullptr;
    }
};

const testing::Environment* const environment = testing::AddGlobalTestEnvironment(new ServerEnvironment);

}  // namespace

AllowedServers::AllowedServers(const std::string& servers) {
    writeSettings("test, " + servers);
}

AllowedServers::~AllowedServers() {
    writeSettings("test");
}

PostgresqlServer& theServer() {
    if (!server)
        throw std::runtime_error("the name of the test does not say that it needs the server");
    return *server;
}

}  // namespace test
