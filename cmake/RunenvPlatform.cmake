# The machine that the code is written for: sizes, alignments and system calls are those of Linux on
# x86-64 with pointers of 8 bytes, which -m32 and -mx32 take away.
if(NOT CMAKE_SYSTEM_NAME STREQUAL Linux OR NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64)$"
   OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  message(FATAL_ERROR
          "runenv is for Linux on x86_64 with pointers of 8 bytes, but this build is for "
          "${CMAKE_SYSTEM_NAME} on ${CMAKE_SYSTEM_PROCESSOR} with pointers of "
          "${CMAKE_SIZEOF_VOID_P} bytes.")
endif()
