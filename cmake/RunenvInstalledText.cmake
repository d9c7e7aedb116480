# Makes the installed texts in the directory "text": README.md without its parts about the sources,
# the manual pages with the version and its date, and the guides of runenv-dev with their links.
file(STRINGS CHANGELOG.md changes)
set(date)
foreach(line ${changes})
  if(line MATCHES "^## \\[${PROJECT_VERSION}\\] - ([0-9-]+)$")
    set(date ${CMAKE_MATCH_1})
  endif()
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md README.md)

# An unreleased version has the date of the build, which SOURCE_DATE_EPOCH can set.
set(runenv_released ${date})
if(NOT date)
  string(TIMESTAMP date "%Y-%m-%d" UTC)
endif()
set(months January February March April May June July August September October November December)
string(REGEX MATCH "^([0-9]+)-0?([0-9]+)-0?([0-9]+)" runenv_date ${date})
math(EXPR month "${CMAKE_MATCH_2} - 1")
list(GET months ${month} month)
set(manual_date "${month} ${CMAKE_MATCH_3}, ${CMAKE_MATCH_1}")

# mandoc prints the third word of .Dt in the header. groff needs a definition of it as a volume.
set(name runenv-${PROJECT_VERSION})
set(volume ".ds doc-volume-as-${name} ${name}\n")
set(text ${PROJECT_BINARY_DIR}/text)
file(GLOB pages CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/docs/man docs/man/*.1)
foreach(page ${pages})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/man/${page})
  file(READ docs/man/${page} content)
  string(REGEX REPLACE "^\\.Dd [^\n]*\n\\.Dt ([^\n]*)\n\\.Os\n"
         "${volume}.Dd ${manual_date}\n.Dt \\1 ${name}\n.Os runenv ${PROJECT_VERSION}\n"
         content "${content}")
  file(WRITE ${text}/man/${page} "${content}")
endforeach()

file(READ README.md content)
string(REGEX REPLACE "\n\\| building it, [^\n]*" "" content "${content}")
string(FIND "${content}" "<!-- sources -->" begin)
while(begin GREATER -1)
  string(FIND "${content}" "<!-- /sources -->\n" end)
  math(EXPR end "${end} + 18")
  string(SUBSTRING "${content}" 0 ${begin} before)
  string(SUBSTRING "${content}" ${end} -1 behind)
  set(content "${before}${behind}")
  string(FIND "${content}" "<!-- sources -->" begin)
endwhile()
file(WRITE ${text}/README.md "${content}")

# The guides of runenv-dev link to documents of runenv, whose directory is beside theirs.
foreach(guide embedding sockets stability)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/${guide}.md)
  file(READ docs/${guide}.md content)
  string(REPLACE "](../" "](../runenv/" content "${content}")
  string(REGEX REPLACE "\\]\\((messages|version-info-format)\\.md" "](../runenv/docs/\\1.md" content
         "${content}")
  file(WRITE ${text}/guides/${guide}.md "${content}")
endforeach()
