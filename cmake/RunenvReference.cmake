# The reference: Doxygen makes a page for each public header in reference/html. It fails on a public
# name without a comment.
option(RUNENV_BUILD_REFERENCE "Build and install the library's reference (with Doxygen)" OFF)
find_program(RUNENV_DOXYGEN doxygen)
mark_as_advanced(RUNENV_DOXYGEN)
if(NOT RUNENV_DOXYGEN)
  if(RUNENV_BUILD_REFERENCE)
    message(FATAL_ERROR "RUNENV_BUILD_REFERENCE needs Doxygen, which is not installed.")
  endif()
  return()
endif()

list(TRANSFORM runenv_public_headers PREPEND "${PROJECT_SOURCE_DIR}/"
     OUTPUT_VARIABLE reference_headers)
list(JOIN reference_headers "\" \"" reference_input)
configure_file(docs/reference/Doxyfile.in reference/Doxyfile @ONLY)
file(GLOB reference_parts CONFIGURE_DEPENDS docs/reference/*)
add_custom_command(
  OUTPUT reference/html/index.html
  COMMAND ${CMAKE_COMMAND} -E rm -rf reference/html
  COMMAND ${RUNENV_DOXYGEN} reference/Doxyfile
  DEPENDS ${reference_headers} ${reference_parts} ${PROJECT_BINARY_DIR}/reference/Doxyfile
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
  COMMENT "Building the reference")
set(in_all)
if(RUNENV_BUILD_REFERENCE)
  set(in_all ALL)
endif()
add_custom_target(reference ${in_all} DEPENDS reference/html/index.html)
