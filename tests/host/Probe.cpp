/// A program that has nothing but the host, for what depends on the whole process:
///
///     host_probe log                writes one record of each severity to a logger
///     host_probe bundles FOLDER     prints the symbolic names of the bundles installed from FOLDER, or the error
///     host_probe frameworks         prints how many frameworks several threads see that ask at once
#include "host/DiagnosticLogger.hpp"
#include "host/ServiceFramework.hpp"

#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

void log() {
    host::DiagnosticLogger logger("a::channel");
    logger.log(host::Severity::debug, "something is looked at");
    logger.log(host::Severity::info, "something happens");
    logger.log(host::Severity::warning, "something is odd");
    logger.log(host::Severity::error, "something is wrong");
}

void printBundles(const std::string& folder) {
    // Where the libraries were found may have been relative to the folder that the process leaves.
    std::filesystem::current_path("/");
    try {
        for (const auto& bundle : host::ServiceFramework::installBundles(host::Path::fromAccessName(folder)))
            std::cout << bundle.GetSymbolicName() << '\n';
    } catch (const std::exception& error) {
        std::cout << error.what() << '\n';
    }
}

void countFrameworks() {
    std::vector<std::shared_ptr<cppmicroservices::Framework>> seen(8);
    std::vector<std::thread> threads;
    threads.reserve(seen.size());
    for (auto& framework : seen)
        threads.emplace_back([&framework] { framework = host::ServiceFramework::getFramework(); });
    for (std::thread& thread : threads)
        thread.join();
    const bool active = seen.front()->GetState() == cppmicroservices::Bundle::STATE_ACTIVE;
    std::cout << std::set(seen.begin(), seen.end()).size() << (active ? " active" : " not active") << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "log")
        log();
    else if (what == "bundles" && argc > 2)
        printBundles(argv[2]);
    else if (what == "frameworks")
        countFrameworks();
    else
        return 1;
    return 0;
}
