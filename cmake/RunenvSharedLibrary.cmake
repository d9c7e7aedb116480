# runenv_shared_library(INNER): makes the shared library `runenv` from the objects of the static
# library INNER. It exports only the names in the public headers. The programs and tests need other
# names and link INNER instead.
function(runenv_shared_library inner)
  # Every source includes the public headers first and makes their declarations visible.
  set(visible ${PROJECT_BINARY_DIR}/visible.h)
  list(TRANSFORM runenv_public_headers REPLACE "(.+)" "#include \"\\1\"\n" OUTPUT_VARIABLE includes)
  string(CONCAT text "#pragma GCC visibility push(default)\n" ${includes}
                     "#pragma GCC visibility pop\n")
  file(CONFIGURE OUTPUT ${visible} CONTENT "${text}" @ONLY)
  set_target_properties(${inner} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                            VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${inner} PRIVATE -include ${visible})

  set(script ${PROJECT_SOURCE_DIR}/cmake/runenv.map)
  add_library(runenv SHARED $<TARGET_OBJECTS:${inner}>)
  target_link_options(runenv PRIVATE "-Wl,--version-script=${script}")
  if(NOT RUNENV_SANITIZE) # a sanitizer's functions are in the program
    target_link_options(runenv PRIVATE -Wl,--no-undefined)
  endif()
  # Before 1.0, every minor version may break binary compatibility.
  set_target_properties(
    runenv PROPERTIES VERSION ${PROJECT_VERSION} LINK_DEPENDS ${script} LINKER_LANGUAGE CXX
                      SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()
