#include "operations/Errors.hpp"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <variant>
#include <vector>

#include "operations/XmlCheck.hpp"
#include "project/metadata/FileUtilities.hpp"

namespace operations {

std::string quoted(const host::Path& path) {
    return '"' + path.accessName() + '"';
}

std::u16string explainProblem(const host::Path& file, const std::u16string& problem) {
    if (access(file.accessName().c_str(), R_OK) != 0)
        return problem.empty() ? host::fromUtf8(std::generic_category().message(errno)) : problem;
    if (!problem.empty() && !pm::ends_with(file.text(), u".xml"))
        return problem;
    const std::vector<Problem> found = checkXml(file);
    if (found.empty())
        return problem;
    const std::string place = found.front().line > 0 ? "in line " + std::to_string(found.front().line) + ", " : "";
    return host::fromUtf8(place) + found.front().problem;
}

std::u16string explain(const host::UserException& error) {
    const auto& arguments = error.GetBaseMsgIDObj().arguments;
    const auto* const file = arguments.empty() ? nullptr : std::get_if<std::u16string>(&arguments.front());
    if (!file)
        return error.ToUstring();
    const auto shorten = [suffix = u": \"" + *file + u'"'](const std::u16string& text) {
        return pm::ends_with(text, suffix) ? text.substr(0, text.size() - suffix.size()) : text;
    };
    if (!dynamic_cast<const pm::MetadataReadFailure*>(&error))
        return shorten(error.ToUstring());
    const std::u16string cause = shorten(std::get<std::u16string>(arguments.at(1)));
    return pm::MetadataReadFailure(*file, explainProblem(host::Path(*file), cause)).ToUstring();
}

}  // namespace operations
