# Runs the checks of the configuration on good and bad values. Each runs in its own cmake, because a
# bad value ends it.

# check(MODULE ACCEPTED MESSAGE DEFINITION...): tests whether the module accepts the definitions, or
# rejects them with MESSAGE.
function(check module accepted refusal)
  execute_process(COMMAND ${CMAKE_COMMAND} ${ARGN}
                          -P "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../${module}.cmake"
                  RESULT_VARIABLE status ERROR_VARIABLE message OUTPUT_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " message "${message}") # cmake wraps the lines
  if(accepted AND NOT status EQUAL 0)
    message(SEND_ERROR "refused: '${ARGN}'\n${message}")
  elseif(NOT accepted AND (status EQUAL 0 OR NOT message MATCHES "${refusal}"))
    message(SEND_ERROR "not refused: '${ARGN}'\n${message}")
  elseif(accepted AND ARGN MATCHES "RUNENV_BASE_URL=(.*)")
    string(FIND "${output}" "Distribution server: ${CMAKE_MATCH_1}\n" position)
    if(position EQUAL -1)
      message(SEND_ERROR "not told: '${ARGN}'")
    endif()
  endif()
endfunction()

foreach(url https://localhost https://localhost:8443 https://cdn.example-1.org https://10.0.0.1
            https://h "https://[::1]:443" https://h:1 https://h:65535)
  check(RunenvBaseUrl TRUE "" "-DRUNENV_BASE_URL=${url}")
endforeach()
foreach(url "" http://localhost https:// https://localhost/ https://localhost/path https://:443
            https://localhost: https://localhost:port "https://two words" https://user@host
            "https://host?x" "https://host#x" xhttps://host HTTPS://host "https://host\n"
            https://h:0 https://h:65536 https://h:70000 https://h:100000)
  check(RunenvBaseUrl FALSE "must be https://host" "-DRUNENV_BASE_URL=${url}")
endforeach()

function(check_platform accepted system processor pointer)
  check(RunenvPlatform ${accepted}
        "this build is for ${system} on ${processor} with pointers of ${pointer} bytes"
        -DCMAKE_SYSTEM_NAME=${system} -DCMAKE_SYSTEM_PROCESSOR=${processor}
        -DCMAKE_SIZEOF_VOID_P=${pointer})
endfunction()
check_platform(TRUE Linux x86_64 8)
check_platform(TRUE Linux amd64 8)
check_platform(FALSE Linux x86_64 4)
check_platform(FALSE Linux i686 4)
check_platform(FALSE Linux aarch64 8)
check_platform(FALSE Linux x86_64_v9 8)
check_platform(FALSE Darwin x86_64 8)

# The whole project rejects these flags. Linking for them is not possible here, and not needed.
foreach(flag -m32 -mx32)
  file(REMOVE_RECURSE refused)
  execute_process(COMMAND ${CMAKE_COMMAND} -S "${CMAKE_CURRENT_LIST_DIR}/../.." -B refused
                          -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY
                          -DCMAKE_C_FLAGS=${flag} -DCMAKE_CXX_FLAGS=${flag}
                  RESULT_VARIABLE status ERROR_VARIABLE message OUTPUT_QUIET)
  if(status EQUAL 0 OR NOT message MATCHES "pointers of[ \n]+4[ \n]+bytes")
    message(SEND_ERROR "not refused: ${flag}\n${message}")
  endif()
endforeach()
