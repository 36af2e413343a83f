# talvcs_add_store(<name> SOURCES <file>... HEADERS <file>... LIBRARIES <library>...): the library of a
# store over the public interface of the kit, as the target talvcs_<name>, TalVcs::<name> for hosts.
# LIBRARIES are what it alone needs. Its exported names are those of cmake/<name>.map. Programs that
# reach its internals link talvcs_<name>_objects and talvcs_kit_objects instead.
function(talvcs_add_store name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;HEADERS;LIBRARIES")
  if(NOT TARGET talvcs_kit)
    string(TOUPPER "${name}" option)
    message(FATAL_ERROR "TALVCS_BUILD_${option} needs TALVCS_BUILD_KIT")
  endif()
  set(target talvcs_${name})
  set(export_header "${PROJECT_BINARY_DIR}/generated/stores/${name}/export.h")
  string(TOUPPER "TALVCS_${name}" prefix)

  add_library(${target}_objects OBJECT ${arg_SOURCES})
  talvcs_target_settings(${target}_objects)
  talvcs_precompile_headers(${target}_objects)
  set_target_properties(${target}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${target}_objects PUBLIC
    "${PROJECT_SOURCE_DIR}" "${PROJECT_BINARY_DIR}/generated")
  target_compile_definitions(${target}_objects
    PRIVATE ${target}_EXPORTS
    INTERFACE ${prefix}_STATIC_DEFINE)
  target_link_libraries(${target}_objects PUBLIC talvcs ${arg_LIBRARIES})

  add_library(${target} $<TARGET_OBJECTS:${target}_objects>)
  add_library(TalVcs::${name} ALIAS ${target})
  talvcs_target_settings(${target})
  talvcs_library_settings(${target} "${PROJECT_SOURCE_DIR}/cmake/${name}.map")
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${name}
    OUTPUT_NAME talvcs-${name}
    INSTALL_RPATH "$ORIGIN")
  target_link_libraries(${target} PUBLIC talvcs_kit PRIVATE ${arg_LIBRARIES})
  generate_export_header(${target}
    EXPORT_MACRO_NAME ${prefix}_API NO_EXPORT_MACRO_NAME ${prefix}_NO_EXPORT
    EXPORT_FILE_NAME "${export_header}")
  # Two sets: the base folders of one must not lie in each other, as a build folder in the tree does.
  target_sources(${target} PUBLIC
    FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${arg_HEADERS}
    FILE_SET generated_headers TYPE HEADERS BASE_DIRS "${PROJECT_BINARY_DIR}/generated"
      FILES "${export_header}")
endfunction()
