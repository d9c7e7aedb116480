# Compiler options of this project's own targets.
option(RUNENV_WARNINGS_AS_ERRORS "Treat compiler warnings as errors (for the project's own CI)" OFF)
set(RUNENV_SANITIZE "" CACHE STRING
    "Sanitizers for every target, in the compiler's words, such as address,undefined")

get_property(multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(PROJECT_IS_TOP_LEVEL AND NOT multi_config AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

function(runenv_options target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
      # g++ 12 reports overlaps in the concatenation of std::string that do not exist.
      target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
    if(RUNENV_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
  if(RUNENV_SANITIZE)
    # The vptr check opens descriptors, which some tests make impossible.
    target_compile_options(${target} PUBLIC "-fsanitize=${RUNENV_SANITIZE}" -fno-sanitize=vptr
                           -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC "-fsanitize=${RUNENV_SANITIZE}")
  endif()
endfunction()

# The programs contain the C++ runtime, because loading the shared one takes longer than the rest of
# their start. Distributions that want the shared one can switch this off.
option(RUNENV_STATIC_CXX_RUNTIME "Link the programs with the static C++ runtime" ON)

function(runenv_program_options target)
  runenv_options(${target})
  if(RUNENV_STATIC_CXX_RUNTIME AND NOT RUNENV_SANITIZE)
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
  endif()
endfunction()
