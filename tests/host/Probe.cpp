/// A program that has nothing but the host, for what depends on the whole process:
///
///     host_probe log                writes records of several severities to a logger
///     host_probe bundles FOLDER     prints the symbolic names of the bundles installed from FOLDER
#include "host/DiagnosticLogger.hpp"
#include "host/ServiceFramework.hpp"

#include <filesystem>
#include <iostream>
#include <string>

int main(int argc, char** argv) {
    if (argc > 1 && argv[1] == std::string("log")) {
        host::DiagnosticLogger logger("a::channel");
        logger.log(host::Severity::info, "something happens");
        logger.log(host::Severity::warning, "something is odd");
        logger.log(host::Severity::error, "something is wrong");
    } else if (argc > 2) {
        // Where the libraries were found may have been relative to the folder that the process leaves.
        std::filesystem::current_path("/");
        for (const auto& bundle : host::ServiceFramework::installBundles(host::Path::fromAccessName(argv[2])))
            std::cout << bundle.GetSymbolicName() << ' ';
    }
    return 0;
}
