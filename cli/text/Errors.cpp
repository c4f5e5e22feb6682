#include "cli/text/Errors.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>
#include <variant>
#include <vector>

#include <boost/algorithm/string/replace.hpp>

#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Suggestion.hpp"
#include "cli/text/Warnings.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/Interruption.hpp"
#include "operations/NodeAddress.hpp"
#include "project/metadata/MetadataErrors.hpp"

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
        if (sentence.empty() && sentences.empty())
            sentence = "An error of an unknown kind occurred";
        // Of what an error is caused by, nothing else may be known.
        if (!holds(sentence))
            sentences.push_back(std::move(sentence));
    }

    bool holds(const std::string& text) const {
        return std::any_of(sentences.begin(), sentences.end(),
                           [&](const std::string& sentence) { return sentence.find(text) != std::string::npos; });
    }
};

Status statusOf(ErrorKind kind) {
    constexpr std::array statuses{Status::failure, Status::usage, Status::notAProject, Status::foundProblems};
    return statuses.at(static_cast<std::size_t>(kind));
}

/// The sentence of `error`, with its addresses as the command writes them.
std::string describe(const AddressError& error) {
    std::string sentence;
    for (const auto& piece : error.pieces()) {
        if (const auto* const words = std::get_if<std::string>(&piece))
            sentence += escapeBytes(*words);
        else
            sentence += '"' + formatAddress(std::get<NodeAddress>(piece)) + '"';
    }
    return sentence;
}

/// What may have been meant by a path that is missing.
std::string suggestPath(const AddressError& error) {
    const auto* const missing = dynamic_cast<const MissingPath*>(&error);
    if (!missing)
        return "";
    std::vector<std::string> steps;
    for (const pm::PathElement& sibling : missing->siblings())
        steps.push_back(formatElement(sibling));
    return suggest(formatElement(missing->step()), steps);
}

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

/// Whether `error` is about a scratch file that is gone, so that nobody can say any more what was wrong with it.
bool isAboutGoneFile(const host::UserException& error) {
    const auto& arguments = error.GetBaseMsgIDObj().arguments;
    return dynamic_cast<const project::metadata::MetadataReadFailure*>(&error) &&
           std::get<std::u16string>(arguments.at(1)).empty() &&
           !host::FileUtils::existNoExcept(host::Path(std::get<std::u16string>(arguments.at(0))));
}

void addCurrentException(Report& report) {
    try {
        throw;
    } catch (const host::UserException& error) {
        if (report.sentences.empty() || !isAboutGoneFile(error))
            report.add(escapeText(explain(error)));
        addCauses(report, error);
    } catch (const CommandError& error) {
        if (report.sentences.empty())
            report.status = error.status();
        report.add(escapeBytes(error.what()));
        addCauses(report, error);
    } catch (const AddressError& error) {
        if (report.sentences.empty())
            report.status = statusOf(error.kind());
        report.add(describe(error) + suggestPath(error));
        addCauses(report, error);
    } catch (const OperationError& error) {
        if (report.sentences.empty())
            report.status = statusOf(error.kind());
        report.add(escapeBytes(error.what()));
        addCauses(report, error);
    } catch (const host::InterruptedException&) {
        report.status = Status::interrupted;
        report.add("Interrupted; everything is as it was");
    } catch (const host::FileSystemException& error) {
        const bool isNamed = report.holds(escapeText(error.path().text()));
        report.add(escapeBytes(isNamed ? error.code().message() : error.what()));
    } catch (const std::bad_alloc&) {
        report.add("There is not enough memory");
    } catch (const std::exception& error) {
        report.add(escapeBytes(error.what()));
        addCauses(report, error);
    } catch (...) {
        report.add({});
    }
}

/// All sentences of errors that have been written.
std::vector<std::string>& toldSentences() {
    static std::vector<std::string> sentences;
    return sentences;
}

/// Whether an error has said all of `parts`.
bool isTold(const std::vector<std::string>& parts) {
    const auto holdsAll = [&](const std::string& told) {
        return std::all_of(parts.begin(), parts.end(),
                           [&](const std::string& part) { return told.find(part) != std::string::npos; });
    };
    return std::any_of(toldSentences().begin(), toldSentences().end(), holdsAll);
}

void write(const std::string& start, const std::string& sentence) {
    Progress::makeRoom();
    std::fprintf(stderr, "%s%s\n", start.c_str(), sentence.c_str());
}

void tell(const std::string& start, const std::string& sentence) {
    write(start, sentence);
    toldSentences().push_back(sentence);
}

const std::string programStart = "project-metadata: ";
const std::string indentation = "    ";

}  // namespace

// What comes from a file or the standard input may hold NUL, where `what` would end.
CommandError::CommandError(Status status, const std::string& sentence)
    : std::runtime_error(boost::algorithm::replace_all_copy(sentence, std::string(1, '\0'), "\\u0000")),
      status_(status) {}

void reportError(const std::string& sentence) {
    tell(programStart, escapeBytes(sentence));
}

void reportWarnings() {
    const std::string start = toldSentences().empty() ? programStart : indentation;
    for (const auto& [file, text, isForeign] : takeWarnings()) {
        const std::string name = escapeText(file.text());
        const std::string problem = escapeText(file.empty() ? text : explainProblem(file, text));
        if (!isTold({name, problem}))
            write(start, file.empty() ? problem
                                      : '"' + name + (isForeign ? "\" is read, but not written: " : "\" is damaged: ") +
                                            problem);
    }
}

Status reportCurrentException() {
    Report report;
    addCurrentException(report);
    for (const std::string& sentence : report.sentences)
        tell(sentence == report.sentences.front() ? programStart : indentation, sentence);
    return report.status;
}

Status statusOfCurrentException() {
    Report report;
    addCurrentException(report);
    return report.status;
}

void reportReadError() {
    flushOutput();
    reportCurrentException();
}

Status reportUnreadable(std::size_t count, Status status) {
    if (count == 0)
        return status;
    flushOutput();
    reportError(formatCount(count, "path") + " could not be read; \"project-metadata check\" says what is damaged");
    return Status::foundProblems;
}

}  // namespace cli
