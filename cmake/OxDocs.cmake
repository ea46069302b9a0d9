# The target "docs": the public headers as pages, in docs/html of the build. Not part of a build.
find_program(OX_DOXYGEN doxygen)
mark_as_advanced(OX_DOXYGEN)
if(NOT OX_DOXYGEN OR NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

set(OX_DOCS_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
configure_file(${PROJECT_SOURCE_DIR}/cmake/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
add_custom_target(docs
  COMMAND ${CMAKE_COMMAND} -E make_directory ${OX_DOCS_DIRECTORY}
  COMMAND ${OX_DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile
  COMMENT "Public headers as pages: ${OX_DOCS_DIRECTORY}/html/index.html"
  VERBATIM)
