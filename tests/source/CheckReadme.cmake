# cmake -D TOP=<source folder> -P CheckReadme.cmake
#
# Fails when a program that a guide shows is not the one in examples/, which is built and run.

function(check_shown guide language file)
    file(READ ${TOP}/${guide} text)
    file(READ ${TOP}/examples/${file} program)
    string(FIND "${text}" "```${language}\n${program}```" found)
    if(found EQUAL -1)
        message(SEND_ERROR "${guide} does not show examples/${file} as it is")
    endif()
endfunction()

check_shown(README.md cpp minimal/main.cpp)
check_shown(docs/getting-started.md cpp counter/main.cpp)
check_shown(docs/getting-started.md cmake counter/CMakeLists.txt)
