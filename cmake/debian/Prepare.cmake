# Run by cpack: makes what is installed what a distribution asks for.

# The libraries are where the dynamic linker looks.
file(GLOB_RECURSE objects ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.so ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.so.*
    ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/bin/project-metadata)
foreach(object IN LISTS objects)
    if(NOT IS_SYMLINK ${object})
        file(RPATH_REMOVE FILE ${object})
    endif()
endforeach()

file(GLOB_RECURSE pages ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.1)
list(FILTER pages INCLUDE REGEX "/man1/")
execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)
