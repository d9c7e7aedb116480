# The public headers, relative to the project: all that do not begin with "// Internal:". They are
# installed, have a page in the reference, and declare the names that a shared library exports.
set(runenv_public_headers)
foreach(folder core fs process runtime schema socket stream)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
       ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  foreach(header ${headers})
    file(STRINGS ${PROJECT_SOURCE_DIR}/${header} first_line LIMIT_COUNT 1)
    if(NOT first_line MATCHES "^// Internal:")
      list(APPEND runenv_public_headers ${header})
    endif()
  endforeach()
endforeach()
