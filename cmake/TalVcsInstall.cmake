# The install rules: libraries, headers, the CMake package and the pkg-config modules. Every path in
# what is installed is relative to the file that names it, so that a prefix can be moved.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# Headers of one major version stand in a folder of their own, so that two can be installed at once.
set(talvcs_include_dir "${CMAKE_INSTALL_INCLUDEDIR}/talvcs-${PROJECT_VERSION_MAJOR}")
set(talvcs_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/TalVcs")

# talvcs_install_library(<target> <export set> <component> <pkg-config module>)
function(talvcs_install_library target export_set component module)
  install(TARGETS ${target} EXPORT ${export_set}
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component}
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component}
      NAMELINK_COMPONENT ${component}_dev
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component}_dev
    FILE_SET HEADERS DESTINATION "${talvcs_include_dir}" COMPONENT ${component}_dev
    FILE_SET generated_headers DESTINATION "${talvcs_include_dir}" COMPONENT ${component}_dev
    INCLUDES DESTINATION "${talvcs_include_dir}")
  install(EXPORT ${export_set} NAMESPACE TalVcs::
    DESTINATION "${talvcs_package_dir}" COMPONENT ${component}_dev)

  file(RELATIVE_PATH talvcs_prefix_from_module
    "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" talvcs_prefix_from_module "${talvcs_prefix_from_module}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/${module}.pc.in" "${module}.pc" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${module}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT ${component}_dev)
endfunction()

talvcs_install_library(talvcs TalVcsTargets talvcs talvcs)
if(TALVCS_BUILD_KIT)
  talvcs_install_library(talvcs_kit TalVcsKitTargets kit talvcs-kit)
endif()
if(TALVCS_BUILD_SQLITE)
  talvcs_install_library(talvcs_sqlite TalVcsSqliteTargets sqlite talvcs-sqlite)
endif()

configure_package_config_file(cmake/TalVcsConfig.cmake.in TalVcsConfig.cmake
  INSTALL_DESTINATION "${talvcs_package_dir}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(TalVcsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/TalVcsConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/TalVcsConfigVersion.cmake"
  DESTINATION "${talvcs_package_dir}" COMPONENT talvcs_dev)
