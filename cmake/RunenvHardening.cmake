# The programs run unattended on data of others. Hardening makes them position independent, with
# immediate binding and read-only relocations, stack protection, protection from stack clashes,
# marked targets of indirect jumps, and checked calls of the C and the C++ library.
option(RUNENV_HARDENING "Build hardened programs" ON)

if(RUNENV_HARDENING AND PROJECT_IS_TOP_LEVEL)
  include(CheckCXXSourceCompiles)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  # The C library's checks need an optimised build and do not work with sanitizers. Level 3 also
  # checks the sizes of allocated memory, if the C library supports it.
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
