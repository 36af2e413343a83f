# The target docs: the documents and the reference of all installed headers as a site, in docs/html of the
# build folder, without a warning and without a dead link.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_package(Doxygen REQUIRED COMPONENTS doxygen dot)
get_target_property(talvcs_dot Doxygen::dot IMPORTED_LOCATION)
cmake_path(GET talvcs_dot PARENT_PATH talvcs_dot_folder)

set(talvcs_site "${PROJECT_BINARY_DIR}/docs")
file(GLOB talvcs_site_files CONFIGURE_DEPENDS
  "${PROJECT_SOURCE_DIR}/*.md" "${PROJECT_SOURCE_DIR}/docs/*.md" "${PROJECT_SOURCE_DIR}/docs/site/*.dox")

# The headers as they are listed for installation.
foreach(target IN ITEMS talvcs talvcs_kit talvcs_sqlite talvcs_zip talvcs_encryption
    talvcs_postgres)
  if(TARGET ${target})
    get_target_property(headers ${target} HEADER_SET)
    get_target_property(folder ${target} SOURCE_DIR)
    foreach(header IN LISTS headers)
      cmake_path(ABSOLUTE_PATH header BASE_DIRECTORY "${folder}")
      list(APPEND talvcs_site_files "${header}")
    endforeach()
  endif()
endforeach()
list(TRANSFORM talvcs_site_files REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE talvcs_site_input)
list(JOIN talvcs_site_input " " talvcs_site_input)

configure_file("${PROJECT_SOURCE_DIR}/docs/site/Doxyfile.in" "${talvcs_site}/Doxyfile" @ONLY)
add_custom_target(docs
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${talvcs_site}/html"
  COMMAND Doxygen::doxygen "${talvcs_site}/Doxyfile"
  COMMAND Python3::Interpreter -B "${PROJECT_SOURCE_DIR}/tests/docs/links.py" site "${talvcs_site}/html"
  WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
  VERBATIM)
