# card_test(NAME SOURCES... [LIBRARIES ...]): a GoogleTest program in which every case runs in a
# process of its own.
find_package(GTest REQUIRED)
include(GoogleTest)

function(card_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest project_warnings)
    # What is tested is built as it ships; the tests themselves only have to be built soon.
    target_compile_options(${name} PRIVATE -O0)
    list(LENGTH ARG_SOURCES count)
    if(count GREATER 4)
        target_precompile_headers(${name} PRIVATE <gtest/gtest.h> <algorithm> <filesystem>
                                  <functional> <string> <vector>)
    endif()
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60
                         PROPERTIES TIMEOUT 300)
endfunction()
