# Finds the compression library zstd, 1.4 or later, as Zstd::Zstd. Installed beside the package for hosts
# of the static libraries, because not every system's zstd comes with a CMake package.
find_path(Zstd_INCLUDE_DIR zstd.h)
find_library(Zstd_LIBRARY NAMES zstd zstd_static)
mark_as_advanced(Zstd_INCLUDE_DIR Zstd_LIBRARY)
if(Zstd_INCLUDE_DIR)
  file(STRINGS "${Zstd_INCLUDE_DIR}/zstd.h" zstd_lines REGEX "#define ZSTD_VERSION_(MAJOR|MINOR|RELEASE) ")
  string(REGEX REPLACE ".*MAJOR +([0-9]+).*MINOR +([0-9]+).*RELEASE +([0-9]+).*" "\\1.\\2.\\3"
    Zstd_VERSION "${zstd_lines}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Zstd
  REQUIRED_VARS Zstd_LIBRARY Zstd_INCLUDE_DIR VERSION_VAR Zstd_VERSION)

if(Zstd_FOUND AND NOT TARGET Zstd::Zstd)
  add_library(Zstd::Zstd UNKNOWN IMPORTED GLOBAL)
  set_target_properties(Zstd::Zstd PROPERTIES
    IMPORTED_LOCATION "${Zstd_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Zstd_INCLUDE_DIR}")
endif()
