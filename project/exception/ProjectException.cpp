#include "project/exception/ProjectException.hpp"

namespace project::exception {

ProjectException::ProjectException() = default;

ProjectException::~ProjectException() = default;

}  // namespace project::exception
