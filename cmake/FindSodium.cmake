# Finds libsodium, which brings no CMake package of its own: the target Sodium::sodium, and Sodium_FOUND.

find_path(Sodium_INCLUDE_DIR sodium.h)
find_library(Sodium_LIBRARY sodium)
mark_as_advanced(Sodium_INCLUDE_DIR Sodium_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Sodium REQUIRED_VARS Sodium_LIBRARY Sodium_INCLUDE_DIR)

if(Sodium_FOUND AND NOT TARGET Sodium::sodium)
  add_library(Sodium::sodium UNKNOWN IMPORTED)
  set_target_properties(Sodium::sodium PROPERTIES
    IMPORTED_LOCATION "${Sodium_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Sodium_INCLUDE_DIR}")
endif()
