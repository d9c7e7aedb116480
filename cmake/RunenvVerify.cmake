# runenv-verify needs libsodium. Without it that program alone is left out.
set(RUNENV_KEYS "/etc/runenv/keys" CACHE STRING "Directory of the keys that runenv-verify trusts")
set(RUNENV_TAR "/bin/tar" CACHE STRING "The tar that runenv-verify unpacks with")
find_path(SODIUM_INCLUDE_DIR sodium.h)
find_library(SODIUM_LIBRARY sodium)
mark_as_advanced(SODIUM_INCLUDE_DIR SODIUM_LIBRARY)

if(SODIUM_INCLUDE_DIR AND SODIUM_LIBRARY)
  add_executable(runenv-verify tools/runenv_verify.cpp tools/keys.cpp tools/published_name.cpp
                               tools/run_tool.cpp tools/signature.cpp tools/unpacking.cpp)
  target_include_directories(runenv-verify SYSTEM PRIVATE ${SODIUM_INCLUDE_DIR})
  target_link_libraries(runenv-verify PRIVATE ${SODIUM_LIBRARY})
  target_compile_definitions(runenv-verify PRIVATE "RUNENV_KEYS=\"${RUNENV_KEYS}\""
                                                   "RUNENV_TAR=\"${RUNENV_TAR}\"")
  list(APPEND tools runenv-verify)
else()
  message(STATUS "runenv-verify: left out, as libsodium is not installed")
endif()
