include(GoogleTest)

# talvcs_add_gtest(<name> LIBRARIES <library>... [LABELS <label>...] SOURCES <file>...): a GoogleTest
# program, each of whose tests is a test of CTest.
function(talvcs_add_gtest name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LABELS;LIBRARIES;SOURCES")
  add_executable(${name} ${arg_SOURCES})
  talvcs_target_settings(${name})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main)
  # Reading GoogleTest's header takes longer than all else in a test's source.
  target_precompile_headers(${name} PRIVATE <gtest/gtest.h>)
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT 300 LABELS "${arg_LABELS}")
endfunction()
