# cpack runs this when the files of a package are in the staging directory and not yet packed.
if(NOT CPACK_INSTALLED_DIRECTORIES AND CPACK_RUNENV_BASE_URL STREQUAL "https://localhost")
  message(WARNING "The packages are for the distribution server https://localhost. "
                  "Configure with -DRUNENV_BASE_URL=https://your.server to name yours.")
endif()
if(CPACK_INSTALLED_DIRECTORIES)
  # The source archive: remove what git does not track, if git is available.
  list(GET CPACK_INSTALLED_DIRECTORIES 0 source)
  find_program(git git)
  if(git AND EXISTS "${source}/.git")
    execute_process(COMMAND ${git} -c core.quotePath=false ls-files --others --directory
                    WORKING_DIRECTORY "${source}" OUTPUT_VARIABLE untracked)
    string(REGEX MATCHALL "[^\n]+" untracked "${untracked}")
    foreach(path ${untracked})
      file(REMOVE_RECURSE "${CPACK_TEMPORARY_DIRECTORY}/${path}")
    endforeach()
  endif()
elseif(CPACK_GENERATOR STREQUAL DEB)
  # Debian's policy: compressed manual pages, a changelog in Debian's format, a copyright file, zsh
  # completions in Debian's directory, and curl's settings in /etc.
  set(share "${CPACK_TEMPORARY_DIRECTORY}/runtime/usr/share")
  string(TIMESTAMP date "%Y-%m-%d" UTC)
  string(TIMESTAMP year "%Y" UTC)
  execute_process(COMMAND awk -v version=${CPACK_PACKAGE_VERSION} -v now=${date}
                          -v maintainer=${CPACK_PACKAGE_CONTACT}
                          -f ${CMAKE_CURRENT_LIST_DIR}/debian_changelog.awk
                          ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md
                  OUTPUT_VARIABLE changelog COMMAND_ERROR_IS_FATAL ANY)
  set(changelogs)
  foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} upper)
    set(documents "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/doc")
    string(APPEND documents "/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
    file(WRITE "${documents}/changelog" "${changelog}")
    list(APPEND changelogs "${documents}/changelog")
    configure_file("${CMAKE_CURRENT_LIST_DIR}/copyright.in" "${documents}/copyright" @ONLY)
  endforeach()
  file(GLOB pages "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man1/*.1")
  execute_process(COMMAND gzip -9nf ${pages} ${changelogs} COMMAND_ERROR_IS_FATAL ANY)
  if(EXISTS "${share}/runenv/curlrc")
    file(MAKE_DIRECTORY "${CPACK_TEMPORARY_DIRECTORY}/runtime/etc/runenv")
    file(RENAME "${share}/runenv/curlrc" "${CPACK_TEMPORARY_DIRECTORY}/runtime/etc/runenv/.curlrc")
  endif()
  if(EXISTS "${share}/zsh/site-functions")
    file(RENAME "${share}/zsh/site-functions" "${share}/zsh/vendor-completions")
  endif()
endif()
# All users can read what is packed, whatever the umask and the permissions of the sources are.
execute_process(COMMAND chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_DIRECTORY}"
                COMMAND_ERROR_IS_FATAL ANY)
