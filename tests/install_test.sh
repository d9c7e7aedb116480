#!/bin/sh
# What a build installs and packs, used as its users will: install_test.sh BUILD-DIRECTORY CONFIG
# Compilers, their flags and CMake's generator come from the environment.
set -eu
build=$(cd "$1" && pwd)
config=$2
tests=$(cd "$(dirname "$0")" && pwd)
source=$(dirname "$tests")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

fail() {
  echo "failed: $*" >&2
  exit 1
}
# quietly COMMAND...: shows what the command printed only if it fails.
quietly() {
  "$@" >log 2>&1 || {
    cat log >&2
    fail "$*"
  }
}

# Installed in one place and moved to another, everything is found all the same.
quietly cmake --install "$build" --config "$config" --prefix "$scratch/prefix"
mv prefix moved
find moved -type f | LC_ALL=C sort
PKG_CONFIG_PATH=$scratch/$(dirname "$(find moved -name runenv.pc)")
export PKG_CONFIG_PATH CMAKE_PREFIX_PATH="$scratch/moved"
version=$(pkg-config --modversion runenv)
moved/bin/runenv-versions --version | grep -q "$version" || fail "version $version of the program"

# Every header compiles, with the installed ones alone.
(cd moved/include/runenv && find . -name '*.h') | sed 's,^\./\(.*\),#include <\1>,' >all.cpp
# shellcheck disable=SC2046,SC2086 # words
"$CXX" $CXXFLAGS -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only \
  $(pkg-config --cflags runenv) all.cpp

# With pkg-config's words a C compiler links C, and whatever else is in the library.
run_linked_by_cc() {
  # shellcheck disable=SC2046,SC2086 # words
  "$CC" $CFLAGS "$@" -x none $(pkg-config --cflags --libs runenv) -o linked
  ./linked >/dev/null || fail "$*"
}
run_linked_by_cc -std=c11 -x c "$tests/c_interface.c"
run_linked_by_cc -std=c++20 -x c++ "$tests/install/consumer.cpp"

# find_package takes the same minor version and refuses others.
minor=${version#*.} minor=${minor%%.*}
quietly cmake -S "$tests/install" -B found -DRUNENV_VERSION="${version%%.*}.$minor"
quietly cmake --build found
[ "$(found/consumer | tr '\n' '|')" = 'before main|received hello|' ] || fail "the C++ consumer"
for other in 0.0 "${version%%.*}.$((minor + 1))" $((${version%%.*} + 1)).0; do
  ! cmake -S "$tests/install" -B other -DRUNENV_VERSION="$other" >log 2>&1 ||
    fail "version $version taken for $other"
  grep -q "runenvConfig.cmake, version: $version" log || fail "no word about the version"
done

# The source archive holds what git tracks and configures; embedded, it builds the library alone.
quietly cpack -G TGZ --config "$build/CPackSourceConfig.cmake" -B source
tar -xzf source/runenv-*.tar.gz
archive=$scratch/runenv-$version
if git -C "$source" ls-files >tracked 2>/dev/null && [ -e "$source/.git" ]; then
  while read -r file; do [ ! -e "$source/$file" ] || echo "$file"; done <tracked | sort >expected
  (cd "$archive" && find . -type f) | sed 's,^\./,,' | sort | diff expected - || fail "source archive"
fi
quietly cmake -S "$archive" -B configured
quietly cmake -S "$tests/install" -B embedded -DRUNENV_SOURCE="$archive"
quietly cmake --build embedded --parallel 2
embedded/consumer >/dev/null || fail "the embedding consumer"
quietly cmake --install embedded --prefix "$scratch/nothing"
[ ! -e nothing ] || fail "the embedded project installs itself"
built=$(find embedded/_deps/runenv-build -name 'runenv-*' -type f)
[ -z "$built" ] || fail "the embedded project builds $built"

grep -q 'CPACK_GENERATOR "DEB"' "$build/CPackConfig.cmake" || {
  echo "Debian's tools are not installed: no packages tested"
  exit 0
}
quietly cpack -C "$config" --config "$build/CPackConfig.cmake" -B packages
for package in packages/*.deb; do
  dpkg-deb -f "$package" Package Version Depends
  dpkg-deb -x "$package" unpacked
done
dpkg-deb -f packages/runenv_*.deb Depends | grep -q 'curl, tar .*libc6 .*libstdc++6 ' || fail Depends
unpacked/usr/bin/runenv-bootstrap --help 2>&1 | grep -q 'version info' || fail "the packaged program"
find "$source/docs" -name '*.1' | while read -r page; do
  gzip -dc "unpacked/usr/share/man/man1/${page##*/}.gz" | cmp - "$page"
done
