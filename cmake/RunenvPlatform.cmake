# The code depends on sizes, alignments and system calls of Linux on x86-64 with pointers of 8
# bytes. With -m32 or -mx32, pointers have 4 bytes.
if(NOT CMAKE_SYSTEM_NAME STREQUAL Linux OR NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64)$"
   OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  message(FATAL_ERROR
          "runenv is for Linux on x86_64 with pointers of 8 bytes, but this build is for "
          "${CMAKE_SYSTEM_NAME} on ${CMAKE_SYSTEM_PROCESSOR} with pointers of "
          "${CMAKE_SIZEOF_VOID_P} bytes.")
endif()
