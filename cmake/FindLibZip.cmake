# Finds libzip, 1.7 or later, as LibZip::zip. Installed beside the package for hosts of the static
# libraries. libzip's own CMake package fails where its programs aren't installed, as on Debian.
find_path(LibZip_INCLUDE_DIR zip.h)
find_path(LibZip_CONFIG_INCLUDE_DIR zipconf.h HINTS "${LibZip_INCLUDE_DIR}")
find_library(LibZip_LIBRARY NAMES zip libzip)
mark_as_advanced(LibZip_INCLUDE_DIR LibZip_CONFIG_INCLUDE_DIR LibZip_LIBRARY)
if(LibZip_CONFIG_INCLUDE_DIR)
  file(STRINGS "${LibZip_CONFIG_INCLUDE_DIR}/zipconf.h" libzip_line REGEX "#define LIBZIP_VERSION ")
  string(REGEX REPLACE ".*\"([0-9.]+)\".*" "\\1" LibZip_VERSION "${libzip_line}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibZip
  REQUIRED_VARS LibZip_LIBRARY LibZip_INCLUDE_DIR LibZip_CONFIG_INCLUDE_DIR VERSION_VAR LibZip_VERSION)

if(LibZip_FOUND AND NOT TARGET LibZip::zip)
  add_library(LibZip::zip UNKNOWN IMPORTED)
  set_target_properties(LibZip::zip PROPERTIES
    IMPORTED_LOCATION "${LibZip_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${LibZip_INCLUDE_DIR};${LibZip_CONFIG_INCLUDE_DIR}")
endif()
