# Runs the check of the distribution server's base URL on good and bad ones, each by a cmake of its
# own, since a bad one ends it.
set(module "${CMAKE_CURRENT_LIST_DIR}/../cmake/RunenvBaseUrl.cmake")

function(check url accepted)
  execute_process(COMMAND ${CMAKE_COMMAND} "-DRUNENV_BASE_URL=${url}" -P "${module}"
                  RESULT_VARIABLE status ERROR_VARIABLE message OUTPUT_QUIET)
  if(accepted AND NOT status EQUAL 0)
    message(SEND_ERROR "refused: '${url}'\n${message}")
  elseif(NOT accepted AND (status EQUAL 0 OR NOT message MATCHES "must be https://host"))
    message(SEND_ERROR "not refused: '${url}'\n${message}")
  endif()
endfunction()

foreach(url https://localhost https://localhost:8443 https://cdn.example-1.org https://10.0.0.1
            https://h "https://[::1]:443" https://h:1 https://h:65535)
  check("${url}" TRUE)
endforeach()
foreach(url "" http://localhost https:// https://localhost/ https://localhost/path https://:443
            https://localhost: https://localhost:port "https://two words" https://user@host
            "https://host?x" "https://host#x" xhttps://host HTTPS://host "https://host\n"
            https://h:0 https://h:65536 https://h:70000 https://h:100000)
  check("${url}" FALSE)
endforeach()
