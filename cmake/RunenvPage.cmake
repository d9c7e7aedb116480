# Makes the source page_text.cpp in the build directory: tools/page/index.html with
# tools/page/index.css in it. The page's security policy allows only this style, by its hash.
set(page_dir ${PROJECT_SOURCE_DIR}/tools/page)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page_dir}/index.html
                                       ${page_dir}/index.css)

# Converts 32 bytes from hexadecimal to base64. A padding byte makes 11 groups of 3 bytes.
function(runenv_base64 hex result)
  set(letters ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(REGEX MATCHALL "......" groups "${hex}00")
  foreach(group ${groups})
    foreach(shift 18 12 6 0)
      math(EXPR at "(0x${group} >> ${shift}) & 63")
      string(SUBSTRING ${letters} ${at} 1 letter)
      string(APPEND text ${letter})
    endforeach()
  endforeach()
  string(REGEX REPLACE "A$" "=" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

file(READ ${page_dir}/index.html page)
file(READ ${page_dir}/index.css style)
string(SHA256 hash "${style}")
runenv_base64(${hash} hash)
string(REPLACE "{{style}}" "${style}" page "${page}")
string(REPLACE "{{style_hash}}" "sha256-${hash}" page "${page}")
file(CONFIGURE OUTPUT page_text.cpp @ONLY CONTENT [[
#include "tools/page_text.h"

const char runenv::kPageText[] = R"page(@page@)page";
]])
