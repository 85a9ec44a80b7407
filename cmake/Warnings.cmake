# One set of warnings for everything that is ours; a warning is an error.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
    -Wall -Wextra -pedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wformat=2
    -Wnull-dereference -Wundef -Wvla -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
                              -Wextra-semi>
    # g++ 12 finds overlaps in the standard library's own string concatenation.
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
if(INLINE_SERVICE_SANITIZE)
    # With a sanitizer g++ loses sight of what the standard library has initialised.
    target_compile_options(project_warnings INTERFACE
        $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-maybe-uninitialized>)
endif()
# The paths that the code itself shows do not depend on where the tree was checked out.
target_compile_options(project_warnings INTERFACE
    "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=pellam/")
