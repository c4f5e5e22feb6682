# cmake -D BUILD=<build folder> -D PREFIX=<prefix> -P CheckUninstall.cmake
#
# Installs into a prefix, uninstalls, and fails when anything is left of it or anything else is gone.

file(REMOVE_RECURSE ${PREFIX})
file(WRITE ${PREFIX}/include/project_metadata/other.hpp "somebody else's\n")
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE installed ${PREFIX}/*)
list(LENGTH installed count)
if(count LESS 100)
    message(SEND_ERROR "Only ${count} files are installed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} --target uninstall OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE left RELATIVE ${PREFIX} LIST_DIRECTORIES true ${PREFIX}/*)
# Folders that many packages have may stay.
list(FILTER left INCLUDE REGEX "project.metadata|/man1/.|/completions/.|/site-functions/.|/vendor_completions.d/.")
if(NOT left STREQUAL "include/project_metadata;include/project_metadata/other.hpp")
    message(SEND_ERROR "These are left: ${left}")
endif()
file(REMOVE_RECURSE ${PREFIX})
