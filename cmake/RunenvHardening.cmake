# Programs that run unattended on other people's data: position independent, with bound and
# read-only relocations, stack protection and checked C library calls.
option(RUNENV_HARDENING "Build hardened programs" ON)

if(RUNENV_HARDENING AND PROJECT_IS_TOP_LEVEL)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_compile_options(-fstack-protector-strong)
  # The checks need an optimising build, and do not go with a sanitizer.
  if(NOT RUNENV_SANITIZE)
    add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  endif()
  add_link_options(-Wl,-z,relro,-z,now)
endif()
