# What "cmake --install" installs, and where. The component "runtime" has the programs and their
# documents, "development" the library for compiling, "library" the shared library, "verify"
# runenv-verify, "reference" the reference. A project that embeds this one installs nothing of it,
# and builds only the programs that it asks for, unless it sets RUNENV_INSTALL.
option(RUNENV_INSTALL "Install the programs and the library" ${PROJECT_IS_TOP_LEVEL})

set(programs runenv-bootstrap ${tools})
list(REMOVE_ITEM programs runenv-verify)
if(TARGET runenv-verify)
  set(verifying runenv-verify)
endif()

if(NOT RUNENV_INSTALL)
  if(NOT PROJECT_IS_TOP_LEVEL)
    set_target_properties(${programs} ${verifying} PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
  return()
endif()

include(CMakePackageConfigHelpers)
# On Debian, libraries go to Debian's directory.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE
   AND EXISTS /etc/debian_version)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries")
endif()
include(GNUInstallDirs)
include(RunenvInstalledText)

# The programs, their manual pages and completions.
install(TARGETS ${programs} COMPONENT runtime)
set(elsewhere PATTERN "runenv-verify*" EXCLUDE)
if(NOT TARGET runenv-status)
  list(APPEND elsewhere REGEX "runenv-(status|served|update)" EXCLUDE)
endif()
install(DIRECTORY ${text}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime
        FILES_MATCHING PATTERN "*.1" ${elsewhere})
set(bash_dir ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
set(fish_dir ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
install(DIRECTORY scripts/completions/bash/ DESTINATION ${bash_dir} COMPONENT runtime
        ${elsewhere})
install(DIRECTORY scripts/completions/fish/ DESTINATION ${fish_dir} COMPONENT runtime
        ${elsewhere})
install(DIRECTORY scripts/completions/zsh/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT runtime)

# runenv-verify has its own component, since it alone needs libsodium. Its link named tar is in a
# directory that is on no search path by default.
if(verifying)
  install(TARGETS runenv-verify COMPONENT verify)
  install(FILES ${text}/man/runenv-verify.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT verify)
  install(FILES scripts/completions/bash/runenv-verify DESTINATION ${bash_dir} COMPONENT verify)
  install(FILES scripts/completions/fish/runenv-verify.fish DESTINATION ${fish_dir} COMPONENT verify)
  set(libexec_dir ${CMAKE_INSTALL_FULL_LIBEXECDIR}/runenv)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY "${libexec_dir}"
             OUTPUT_VARIABLE way_to_bin)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/libexec)
  file(CREATE_LINK "${way_to_bin}/runenv-verify" ${PROJECT_BINARY_DIR}/libexec/tar SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/libexec/tar DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/runenv
          COMPONENT verify)
endif()

# What updates a machine automatically. systemd finds its files below /usr and /usr/local. Nothing
# is installed outside of the prefix: users copy the files in share/runenv to where they take
# effect.
if(TARGET runenv-status) # runenv-update runs it first
  set(data_dir ${CMAKE_INSTALL_DATADIR}/runenv)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/contrib)
  install(CODE "
    set(bindir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    set(libexecdir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}\")
    set(RUNENV_KEYS \"${RUNENV_KEYS}\")
    foreach(file runenv-update.sh runenv-update.cron systemd/runenv-update@.service)
      get_filename_component(name \${file} NAME)
      configure_file(\"${PROJECT_SOURCE_DIR}/contrib/\${file}.in\"
                     \"${PROJECT_BINARY_DIR}/contrib/\${name}\" @ONLY)
    endforeach()" COMPONENT runtime)
  install(PROGRAMS ${PROJECT_BINARY_DIR}/contrib/runenv-update.sh RENAME runenv-update
          DESTINATION ${CMAKE_INSTALL_LIBEXECDIR} COMPONENT runtime)
  install(FILES ${PROJECT_BINARY_DIR}/contrib/runenv-update@.service
                contrib/systemd/runenv-update@.timer
          DESTINATION lib/systemd/system COMPONENT runtime)
  foreach(kind sysusers tmpfiles)
    install(FILES contrib/systemd/${kind}.conf RENAME runenv.conf DESTINATION lib/${kind}.d
            COMPONENT runtime)
  endforeach()
  install(FILES ${PROJECT_BINARY_DIR}/contrib/runenv-update.cron contrib/curlrc
          DESTINATION ${data_dir} COMPONENT runtime)
  install(DIRECTORY contrib/ansible DESTINATION ${data_dir} COMPONENT runtime
          PATTERN "*.sh" EXCLUDE)
endif()

# The links from README.md into docs/ work here, too.
install(FILES ${text}/README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT runtime)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime
        FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN man EXCLUDE PATTERN reference EXCLUDE
        PATTERN testing.md EXCLUDE PATTERN building.md EXCLUDE)

install(PROGRAMS contrib/upload/runenv-upload DESTINATION ${CMAKE_INSTALL_DOCDIR}/contrib/upload
        COMPONENT runtime)
install(FILES contrib/nginx/runenv-cache.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/contrib/nginx
        COMPONENT runtime)

# For users of the library: the guides, their programs as a project, and the reference.
set(guides_dir ${CMAKE_INSTALL_DATADIR}/doc/runenv-dev)
install(DIRECTORY ${text}/guides/ DESTINATION ${guides_dir} COMPONENT development)
install(DIRECTORY examples DESTINATION ${guides_dir} COMPONENT development)
if(RUNENV_BUILD_REFERENCE)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/html COMPONENT reference
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/runenv-doc)
endif()

# The library and its headers.
foreach(header ${runenv_public_headers})
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/runenv/${folder}
          COMPONENT development)
endforeach()
install(TARGETS runenv EXPORT runenv
        LIBRARY COMPONENT library NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/runenv)

# find_package(runenv CONFIG). Before 1.0, every minor version may break compatibility.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/runenv)
install(EXPORT runenv NAMESPACE runenv:: FILE runenvConfig.cmake DESTINATION ${package_dir}
        COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/runenvConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/runenvConfigVersion.cmake DESTINATION ${package_dir}
        COMPONENT development)

# pkg-config, mainly for C programs: with a static library, they must link the libraries that a C++
# compiler adds by itself. The prefix is relative to the file, so that an installation can be moved.
set(pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${pc_dir}" OUTPUT_VARIABLE pc_prefix)
set(pc_libdir "\${prefix}")
cmake_path(APPEND pc_libdir "${CMAKE_INSTALL_LIBDIR}")
set(pc_includedir "\${prefix}")
cmake_path(APPEND pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}" runenv)
set(pc_libs ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(REMOVE_ITEM pc_libs ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
if(BUILD_SHARED_LIBS)
  set(pc_libs)
endif()
list(TRANSFORM pc_libs PREPEND -l)
list(JOIN pc_libs " " pc_libs)
configure_file(cmake/runenv.pc.in runenv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/runenv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
