# Programs that run unattended on other people's data: position independent, with bound and
# read-only relocations, a stack that is protected and cannot be jumped over, marked targets of
# indirect jumps, and checked calls of the C and the C++ library.
option(RUNENV_HARDENING "Build hardened programs" ON)

if(RUNENV_HARDENING AND PROJECT_IS_TOP_LEVEL)
  include(CheckCXXSourceCompiles)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  # The C library's checks need an optimising build, and do not go with a sanitizer. Level 3 also
  # knows the sizes of what the program allocates; the C library says whether it has that.
  if(NOT RUNENV_SANITIZE)
    set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
    check_cxx_source_compiles("
      #include <cstddef>
      static_assert(__USE_FORTIFY_LEVEL == 3, \"\");
      int main() {}" RUNENV_HAS_FORTIFY_3)
    unset(CMAKE_REQUIRED_FLAGS)
    set(level $<IF:$<BOOL:${RUNENV_HAS_FORTIFY_3}>,3,2>)
    add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${level}>")
  endif()
  add_link_options(-Wl,-z,relro,-z,now)
endif()
