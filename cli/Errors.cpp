#include "cli/Errors.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>
#include <vector>

#include "cli/SafeText.hpp"
#include "host/Interruption.hpp"
#include "host/MessageException.hpp"
#include "host/Path.hpp"

namespace cli {

namespace {

/// Safe UTF-8 of a text that may hold any bytes.
std::string escapeBytes(const std::string& bytes) {
    return escapeText(host::Path::fromAccessName(bytes).text());
}

/// What a reader is told of one exception and then of its causes, each safe to show.
struct Report {
    std::vector<std::string> sentences;
    Status status = Status::failure;

    void add(std::string sentence) {
        if (sentence.empty())
            sentence = "An error of an unknown kind occurred";
        const auto holdsIt = [&](const std::string& other) { return other.find(sentence) != std::string::npos; };
        if (std::none_of(sentences.begin(), sentences.end(), holdsIt))
            sentences.push_back(std::move(sentence));
    }
};

void addCurrentException(Report& report);

/// Adds what is nested in `error`, whatever its type.
template <class Error>
void addCauses(Report& report, const Error& error) {
    try {
        std::rethrow_if_nested(error);
    } catch (...) {
        addCurrentException(report);
    }
}

void addCurrentException(Report& report) {
    try {
        throw;
    } catch (const host::UserException& error) {
        report.add(escapeText(error.ToUstring()));
        addCauses(report, error);
    } catch (const CommandError& error) {
        if (report.sentences.empty())
            report.status = error.status();
        report.add(escapeBytes(error.what()));
        addCauses(report, error);
    } catch (const host::InterruptedException&) {
        report.status = Status::interrupted;
        report.add("Interrupted; everything is as it was");
    } catch (const std::bad_alloc&) {
        report.add("There is not enough memory");
    } catch (const std::exception& error) {
        report.add(escapeBytes(error.what()));
        addCauses(report, error);
    } catch (...) {
        report.add({});
    }
}

}  // namespace

void reportError(const std::string& sentence) {
    std::fprintf(stderr, "project-metadata: %s\n", escapeBytes(sentence).c_str());
}

Status reportCurrentException() {
    Report report;
    addCurrentException(report);
    const char* before = "project-metadata: ";
    for (const std::string& sentence : report.sentences) {
        std::fprintf(stderr, "%s%s\n", before, sentence.c_str());
        before = "    ";
    }
    return report.status;
}

}  // namespace cli
