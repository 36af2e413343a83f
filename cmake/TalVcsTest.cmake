include(GoogleTest)

# talvcs_test_settings(<target>): the project's settings, without optimisation, so that a test's source
# compiles in half the time. The library is as optimised as the build asks. Other platforms keep
# theirs, since an emulator runs slowly. A test may own a repository, whose destructor isn't virtual:
# nobody deletes one through its interface.
function(talvcs_test_settings target)
  talvcs_target_settings(${target})
  target_compile_options(${target} PRIVATE
    $<$<CXX_COMPILER_ID:Clang>:-Wno-delete-non-abstract-non-virtual-dtor>)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" AND NOT TALVCS_PLATFORM)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# talvcs_test_program_settings(<target> <library>...): a program of GoogleTest's tests, with what the
# tests share.
function(talvcs_test_program_settings target)
  talvcs_test_settings(${target})
  target_link_libraries(${target} PRIVATE talvcs_test_support ${ARGN} GTest::gmock_main)
  target_precompile_headers(${target} REUSE_FROM talvcs_test_support)
endfunction()

# talvcs_add_gtest(<name> LIBRARIES <library>... [LABELS <label>...] [SOURCES <file>...]): a GoogleTest
# program, each of whose tests is a test of CTest.
function(talvcs_add_gtest name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LABELS;LIBRARIES;SOURCES")
  add_executable(${name} ${arg_SOURCES})
  talvcs_test_program_settings(${name} ${arg_LIBRARIES})
  if(TALVCS_PLATFORM)
    talvcs_add_platform_test(${name})
  elseif("address" IN_LIST TALVCS_SANITIZE)
    talvcs_add_shards(${name} "${arg_LABELS}")
  else()
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
      PROPERTIES TIMEOUT 300 LABELS "${arg_LABELS}")
  endif()
endfunction()

# talvcs_add_shards(<name> <labels>): the program in a few parts, each of which is one test of CTest:
# under AddressSanitizer a process a test would take longer to start and to look for leaks than to run.
function(talvcs_add_shards name labels)
  set(count 8)
  math(EXPR last "${count} - 1")
  foreach(index RANGE ${last})
    add_test(NAME ${name}.part_${index} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name}.part_${index} PROPERTIES TIMEOUT 900 LABELS "${labels}"
      ENVIRONMENT "GTEST_TOTAL_SHARDS=${count};GTEST_SHARD_INDEX=${index}")
  endforeach()
endfunction()

# talvcs_add_platform_test(<name>): the whole program as one test of CTest, since an emulator takes
# long to start, without the cases that the platform leaves out.
function(talvcs_add_platform_test name)
  set(list "${PROJECT_SOURCE_DIR}/tests/platforms/left_out.txt")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
  file(STRINGS "${list}" lines REGEX "^${TALVCS_PLATFORM} ")
  set(filter "*")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[^ ]+ ([^ ]+).*" "\\1" pattern "${line}")
    if(filter STREQUAL "*")
      string(APPEND filter "-")
    endif()
    string(APPEND filter "${pattern}:")
  endforeach()
  add_test(NAME ${name} COMMAND ${name} "--gtest_filter=${filter}")
  set_tests_properties(${name} PROPERTIES TIMEOUT 1500)
endfunction()
