# The warnings that all of our own targets are compiled with.

function(project_metadata_set_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
        -Wold-style-cast -Wcast-align -Wdouble-promotion -Wformat=2)
    if(PROJECT_METADATA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
