# project_metadata_set_headers(<target> <pattern>...)
#
# The headers of `target` that its users may include: files below the top folder that match one of the patterns. They are
# installed with it; what else lies beside them is not.

include_guard(GLOBAL)

function(project_metadata_set_headers target)
    list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE patterns)
    file(GLOB headers CONFIGURE_DEPENDS ${patterns})
    target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${headers})
endfunction()
