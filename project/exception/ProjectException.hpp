/// The base of every error that the library raises.
#pragma once

#include "project/Export.hpp"
#include "project/exception/StackTraceRecordingException.hpp"

namespace project::exception {

/// Catches every error of the library, and only those.
class PROJECT_METADATA_EXPORT ProjectException : public computils::exception::StackTraceRecordingException {
public:
    ProjectException();
    ProjectException(const ProjectException&) = default;
    ProjectException& operator=(const ProjectException&) = default;
    ~ProjectException() override;
};

}  // namespace project::exception
