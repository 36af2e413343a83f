# What every target of this project is compiled and linked with. Nothing here is global, so that a
# host project which takes the library in by add_subdirectory keeps its own settings.

include(GenerateExportHeader)

# talvcs_target_settings(<target>): warnings, sanitizers and coverage, as the options ask.
function(talvcs_target_settings target)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_features(${target} PRIVATE cxx_std_20)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wshadow -Woverloaded-virtual -Wundef
      -Wold-style-cast -Wcast-qual $<$<BOOL:${TALVCS_WERROR}>:-Werror>)
  endif()
  # GCC 12 takes the inlined joining of std::string for writing out of bounds.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE
      -Wno-error=array-bounds -Wno-error=restrict -Wno-error=stringop-overflow
      -Wno-error=stringop-overread)
  endif()
  if(TALVCS_SANITIZE)
    string(REPLACE ";" "," sanitizers "${TALVCS_SANITIZE}")
    target_compile_options(${target} PRIVATE
      -fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
  endif()
  if(TALVCS_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

# talvcs_precompile_headers(<target>): the headers of the standard library that most sources include,
# read once for all of them, where the option asks for it. A build without it shows whether each
# source includes what it needs.
function(talvcs_precompile_headers target)
  if(TALVCS_PRECOMPILE_HEADERS)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <array> <chrono> <cstddef> <cstdint> <filesystem> <functional> <map> <memory>
      <optional> <span> <string> <string_view> <unordered_map> <utility> <vector>)
  endif()
endfunction()

# talvcs_library_settings(<target> <version script>): what the libraries have in common. Static ones
# can be linked into shared libraries of a host. The version script keeps the standard library's
# template instances, which its headers declare visible, out of the exported symbols.
function(talvcs_library_settings target version_script)
  set_target_properties(${target} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  if(BUILD_SHARED_LIBS AND UNIX AND NOT APPLE)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${version_script}")
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${version_script})
    if(NOT TALVCS_SANITIZE)
      target_link_options(${target} PRIVATE LINKER:-z,defs)
    endif()
  endif()
endfunction()
