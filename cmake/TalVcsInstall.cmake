# The install rules: libraries, headers, the CMake package and the pkg-config modules. Every path in
# what is installed is relative to the file that names it, so that a prefix can be moved.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# Headers of one major version stand in a folder of their own, so that two can be installed at once.
set(talvcs_include_dir "${CMAKE_INSTALL_INCLUDEDIR}/talvcs-${PROJECT_VERSION_MAJOR}")
set(talvcs_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/TalVcs")

# The components of the package, each of which may need those before it.
set(talvcs_components "")
# CMake code that finds the packages that a component needs.
set(talvcs_component_packages "")

# talvcs_install_component(<component> <target> <pkg-config module> [PACKAGES <package>...]): the
# library of a component, its headers, its targets and its module. PACKAGES are what a host has to
# find before it can link the library.
macro(talvcs_install_component component target module)
  cmake_parse_arguments(talvcs_arg "" "" "PACKAGES" ${ARGN})
  install(TARGETS ${target} EXPORT TalVcs_${component}
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component}
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component}
      NAMELINK_COMPONENT ${component}_dev
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component}_dev
    FILE_SET HEADERS DESTINATION "${talvcs_include_dir}" COMPONENT ${component}_dev
    FILE_SET generated_headers DESTINATION "${talvcs_include_dir}" COMPONENT ${component}_dev
    INCLUDES DESTINATION "${talvcs_include_dir}")
  install(EXPORT TalVcs_${component} NAMESPACE TalVcs:: FILE TalVcs_${component}.cmake
    DESTINATION "${talvcs_package_dir}" COMPONENT ${component}_dev)

  configure_file("${PROJECT_SOURCE_DIR}/cmake/${module}.pc.in" "${module}.pc" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${module}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT ${component}_dev)

  list(APPEND talvcs_components ${component})
  if(talvcs_arg_PACKAGES)
    string(APPEND talvcs_component_packages
      "set(talvcs_packages_${component} ${talvcs_arg_PACKAGES})\n")
  endif()
endmacro()

file(RELATIVE_PATH talvcs_prefix_from_module "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" talvcs_prefix_from_module "${talvcs_prefix_from_module}")

talvcs_install_component(talvcs talvcs talvcs)
if(TARGET talvcs_kit)
  # The shared library links threads and zstd itself; hosts of the static one have to find them.
  set(talvcs_kit_packages "")
  set(talvcs_kit_modules "")
  set(talvcs_kit_libraries "")
  get_target_property(talvcs_kit_type talvcs_kit TYPE)
  if(talvcs_kit_type STREQUAL "STATIC_LIBRARY")
    set(talvcs_kit_packages Threads)
    set(talvcs_kit_libraries "${CMAKE_THREAD_LIBS_INIT}")
    if(TALVCS_WITH_ZSTD)
      list(APPEND talvcs_kit_packages Zstd)
      set(talvcs_kit_modules libzstd)
      install(FILES cmake/FindZstd.cmake
        DESTINATION "${talvcs_package_dir}" COMPONENT kit_dev)
    endif()
  endif()
  talvcs_install_component(kit talvcs_kit talvcs-kit PACKAGES ${talvcs_kit_packages})
endif()

# talvcs_install_store(<name> [STATIC_PACKAGES <package>...] [STATIC_MODULES <module>...]
# [STATIC_LIBRARIES <flag>...]): the component of a store, if it is built. The shared library links what
# it needs itself; hosts of the static one have to find the packages, or by pkg-config the modules and
# libraries.
macro(talvcs_install_store name)
  cmake_parse_arguments(talvcs_store "" "" "STATIC_PACKAGES;STATIC_MODULES;STATIC_LIBRARIES" ${ARGN})
  if(TARGET talvcs_${name})
    set(talvcs_${name}_packages "")
    set(talvcs_${name}_modules "")
    set(talvcs_${name}_libraries "")
    get_target_property(talvcs_store_type talvcs_${name} TYPE)
    if(talvcs_store_type STREQUAL "STATIC_LIBRARY")
      set(talvcs_${name}_packages ${talvcs_store_STATIC_PACKAGES})
      list(JOIN talvcs_store_STATIC_MODULES ", " talvcs_${name}_modules)
      list(JOIN talvcs_store_STATIC_LIBRARIES " " talvcs_${name}_libraries)
      foreach(talvcs_package IN LISTS talvcs_${name}_packages)
        if(EXISTS "${PROJECT_SOURCE_DIR}/cmake/Find${talvcs_package}.cmake")
          install(FILES "cmake/Find${talvcs_package}.cmake"
            DESTINATION "${talvcs_package_dir}" COMPONENT ${name}_dev)
        endif()
      endforeach()
    endif()
    talvcs_install_component(${name} talvcs_${name} talvcs-${name} PACKAGES ${talvcs_${name}_packages})
  endif()
endmacro()
talvcs_install_store(sqlite STATIC_PACKAGES SQLite3 STATIC_MODULES sqlite3)
talvcs_install_store(zip STATIC_PACKAGES LibZip ZLIB STATIC_MODULES libzip zlib)
# The module of libpq asks for libraries that are not in its own package as soon as it is asked for
# static ones; libpq itself is a shared library here too.
talvcs_install_store(postgres STATIC_PACKAGES PostgreSQL STATIC_LIBRARIES -lpq)
talvcs_install_store(encryption STATIC_PACKAGES Sodium STATIC_MODULES libsodium)

configure_package_config_file(cmake/TalVcsConfig.cmake.in TalVcsConfig.cmake
  INSTALL_DESTINATION "${talvcs_package_dir}"
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(TalVcsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/TalVcsConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/TalVcsConfigVersion.cmake"
  DESTINATION "${talvcs_package_dir}" COMPONENT talvcs_dev)

if(TALVCS_INSTALL_TAL)
  if(NOT TARGET tal)
    message(FATAL_ERROR "TALVCS_INSTALL_TAL needs the companion library, TALVCS_BUILD_KIT=ON, a system "
      "with POSIX folders, and CLI11 (Debian: libcli11-dev)")
  endif()
  file(RELATIVE_PATH talvcs_libraries_from_tal
    "/prefix/${CMAKE_INSTALL_BINDIR}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(tal PROPERTIES INSTALL_RPATH "$ORIGIN/${talvcs_libraries_from_tal}")
  install(TARGETS tal RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tal)
  if(TARGET tal-servers)
    file(RELATIVE_PATH talvcs_libraries_from_servers
      "/prefix/${CMAKE_INSTALL_LIBEXECDIR}/talvcs" "/prefix/${CMAKE_INSTALL_LIBDIR}")
    set_target_properties(tal-servers PROPERTIES
      INSTALL_RPATH "$ORIGIN/${talvcs_libraries_from_servers}")
    install(TARGETS tal-servers RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/talvcs" COMPONENT tal)
  endif()

  # The completions and the manual page come from the program itself.
  set(talvcs_tal_texts "${CMAKE_CURRENT_BINARY_DIR}/tal_texts")
  file(MAKE_DIRECTORY "${talvcs_tal_texts}")
  add_custom_command(OUTPUT "${talvcs_tal_texts}/tal" "${talvcs_tal_texts}/_tal"
      "${talvcs_tal_texts}/tal.fish" "${talvcs_tal_texts}/tal.1"
    COMMAND tal completion bash > tal
    COMMAND tal completion zsh > _tal
    COMMAND tal completion fish > tal.fish
    COMMAND tal manual > tal.1
    WORKING_DIRECTORY "${talvcs_tal_texts}"
    DEPENDS tal VERBATIM)
  add_custom_target(talvcs_tal_texts ALL DEPENDS "${talvcs_tal_texts}/tal.1")
  install(FILES "${talvcs_tal_texts}/tal" COMPONENT tal
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
  install(FILES "${talvcs_tal_texts}/_tal" COMPONENT tal
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
  install(FILES "${talvcs_tal_texts}/tal.fish" COMPONENT tal
    DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
  install(FILES "${talvcs_tal_texts}/tal.1" COMPONENT tal DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
endif()
