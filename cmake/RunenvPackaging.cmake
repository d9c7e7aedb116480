# Packages of what RunenvInstall.cmake installs. The target "package" makes Debian packages if
# Debian's tools are installed, otherwise an archive. The target "package_source" makes the source
# archive.
set(RUNENV_MAINTAINER "runenv maintainers <maintainers@runenv.invalid>" CACHE STRING
    "Whom the packages name as responsible for them")

set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_VENDOR runenv)
set(CPACK_PACKAGE_CONTACT "${RUNENV_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_RUNENV_BASE_URL "${RUNENV_BASE_URL}")
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/RunenvStagedPackage.cmake")

# dpkg-shlibdeps finds the libraries that the programs need. It and CPack use file(1).
find_program(RUNENV_DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(RUNENV_FILE file)
mark_as_advanced(RUNENV_DPKG_SHLIBDEPS RUNENV_FILE)
if(RUNENV_DPKG_SHLIBDEPS AND RUNENV_FILE)
  set(CPACK_GENERATOR DEB)
else()
  set(CPACK_GENERATOR TGZ)
endif()
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET runenv-verify)
  list(APPEND CPACK_COMPONENTS_ALL verify)
endif()
if(BUILD_SHARED_LIBS)
  list(APPEND CPACK_COMPONENTS_ALL library)
endif()
if(RUNENV_BUILD_REFERENCE)
  list(APPEND CPACK_COMPONENTS_ALL reference)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME runenv)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Since 1.15, tar detects compressed archives itself.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "curl, tar (>= 1.15)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "runenv-verify, minisign")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "bring a local run-time environment up to date
runenv-bootstrap reads a small binary document that names one platform
version and a set of system types, compares each with what a distribution
server offers, and downloads and unpacks what has changed.
.
runenv-versions writes and prints such documents, runenv-publish puts
releases into the tree that a distribution server serves, and runenv-prune
removes releases that are not needed any more.")
if(TARGET runenv-status) # the user, the directory and the settings of runenv-update
  string(APPEND CPACK_DEBIAN_RUNTIME_DESCRIPTION " runenv-status reports
what is installed and whether it is intact. runenv-served lists, checks and
prunes the tree of a distribution server, and writes an index of it. A timer
updates the machine every hour.")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  file(GLOB CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/contrib/debian/*)
endif()

set(CPACK_DEBIAN_VERIFY_PACKAGE_NAME runenv-verify)
set(CPACK_DEBIAN_VERIFY_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_VERIFY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_VERIFY_PACKAGE_DEPENDS "tar (>= 1.15)")
set(CPACK_DEBIAN_VERIFY_PACKAGE_ENHANCES runenv)
set(CPACK_DEBIAN_VERIFY_DESCRIPTION
    "check the signatures of releases before they are unpacked
runenv-verify checks that the archive of a release is signed by a trusted
key, for the item, release and platform that it is unpacked as. In the place
of the tar that runenv-bootstrap starts, it refuses all others.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME runenv-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS runenv-doc)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libc6-dev, g++ | libstdc++-dev")
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  string(REGEX MATCH "^[0-9]+" version ${CMAKE_CXX_COMPILER_VERSION})
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
      "libc6-dev, libstdc++-${version}-dev | libstdc++-dev")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "run-time library of runenv, for C++ and C programs
Strings, buffers, memory pools, paths and files, child processes, streams,
console output and asynchronous sockets: the library with its headers, for
CMake and pkg-config, the guides, and their programs as a project.")

if(BUILD_SHARED_LIBS)
  get_target_property(soversion runenv SOVERSION)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME librunenv${soversion})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
  # Names the package for programs that are linked with the library, and makes dpkg run ldconfig.
  set(control ${PROJECT_BINARY_DIR}/control)
  file(WRITE ${control}/shlibs
       "librunenv ${soversion} librunenv${soversion} (>= ${PROJECT_VERSION})\n")
  file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
  set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
      "run-time library of runenv, for the programs that are linked with it
Strings, buffers, memory pools, paths and files, child processes, streams,
console output and asynchronous sockets.")
  string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
         ", librunenv${soversion} (= ${PROJECT_VERSION})")
endif()

set(CPACK_DEBIAN_REFERENCE_PACKAGE_NAME runenv-doc)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_REFERENCE_DESCRIPTION
    "reference of the run-time library of runenv
A page for each header of the library, with a search, for any browser. It
begins at /usr/share/doc/runenv-doc/html/index.html and needs no network.")

# The source archive. RunenvStagedPackage.cmake removes what git does not track. Without git,
# everything except build directories is included.
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}")
set(source "${PROJECT_SOURCE_DIR}")
set(binary "${PROJECT_BINARY_DIR}")
string(REGEX REPLACE "([][+.*()^$?|\\\\])" "\\\\\\1" source "${source}")
string(REGEX REPLACE "([][+.*()^$?|\\\\])" "\\\\\\1" binary "${binary}")
set(CPACK_SOURCE_IGNORE_FILES "^${source}/\\.git(/|$)" "^${source}/build[^/]*/" "^${binary}/")

include(CPack)
