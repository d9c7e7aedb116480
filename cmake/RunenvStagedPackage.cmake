# Run by cpack when the content of a package lies in place and is not yet packed.
if(CPACK_INSTALLED_DIRECTORIES)
  # The sources: what git does not track, goes, as far as git can tell.
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
  # Debian's ways: compressed manual pages, a changelog in its own form, zsh completions where its
  # zsh looks, and curl's settings in place.
  set(share "${CPACK_TEMPORARY_DIRECTORY}/runtime/usr/share")
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(changelogs "${share}/doc/runenv/changelog"
                 "${CPACK_TEMPORARY_DIRECTORY}/development/usr/share/doc/runenv-dev/changelog")
  if(EXISTS "${CPACK_TEMPORARY_DIRECTORY}/verify")
    list(APPEND changelogs
         "${CPACK_TEMPORARY_DIRECTORY}/verify/usr/share/doc/runenv-verify/changelog")
  endif()
  foreach(changelog ${changelogs})
    file(WRITE "${changelog}" "runenv (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
         "  * What changed is told in /usr/share/doc/runenv/CHANGELOG.md.\n\n"
         " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
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
