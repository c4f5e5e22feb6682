# The warnings that all of our own targets are compiled with.

function(project_metadata_set_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
        -Wold-style-cast -Wcast-align -Wdouble-promotion -Wformat=2)
    # Where several files are compiled as one, names of one file do not hide those of another, and what is in an unnamed
    # namespace is taken for that of a header.
    if(NOT CMAKE_UNITY_BUILD)
        target_compile_options(${target} PRIVATE -Wshadow)
    elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
    endif()
    if(PROJECT_METADATA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
