# The distribution server that the bootstrapper downloads from.
set(RUNENV_BASE_URL "https://localhost" CACHE STRING
    "Distribution server: https://host or https://host:port, with nothing after it")

# A host is a name, an IPv4 address or an IPv6 address in brackets; a port is 1 to 65535.
if(NOT RUNENV_BASE_URL MATCHES "^https://([A-Za-z0-9]([A-Za-z0-9._-]*[A-Za-z0-9])?|\\[[0-9A-Fa-f:.]+\\])(:(0*[1-9][0-9]?[0-9]?[0-9]?[0-9]?))?$"
   OR CMAKE_MATCH_4 GREATER 65535)
  message(FATAL_ERROR
          "RUNENV_BASE_URL is \"${RUNENV_BASE_URL}\", but must be https://host or "
          "https://host:port with nothing after it, not even a slash, and a port of 1 to 65535.")
endif()
message(STATUS "Distribution server: ${RUNENV_BASE_URL}")
