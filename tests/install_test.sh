#!/bin/sh
# What a build installs and packs, used as its users will: install_test.sh BUILD-DIRECTORY CONFIG
# Compilers, their flags and CMake's generator come from the environment.
# shellcheck disable=SC2046,SC2086 # words of pkg-config and the flags
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

# The source archive holds what git tracks.
quietly cpack -G TGZ --config "$build/CPackSourceConfig.cmake" -B source
tar -xzf source/runenv-*.tar.gz
archive=$(echo "$scratch"/runenv-*) version=${archive##*-}
if git -C "$source" ls-files >tracked 2>/dev/null && [ -e "$source/.git" ]; then
  while read -r file; do [ ! -e "$source/$file" ] || echo "$file"; done <tracked | sort >expected
  (cd "$archive" && find . -type f) | sed 's,^\./,,' | sort | diff expected - || fail "source archive"
fi

# The README's commands do there what they say; only the build takes what has been built already.
sed -n -e 's/ *#.*//' -e "s|^cmake --build|cp '$build'/*.cmake|p" -e '/^cmake -S/p' \
  -e "s/^cmake --install.*/& --config $config/p" -e "s/^cpack.*/& -C $config/p" \
  "$source/README.md" >commands
(cd "$archive" && quietly env DESTDIR="$scratch/root" sh -eux ../commands)

# Installed in one place and moved to another, everything is found all the same.
mv "$(dirname "$(find root -type d -name bin)")" moved
find moved -type f | LC_ALL=C sort
pkgconfig=$(find "$scratch/moved" -type d -name pkgconfig)
export PKG_CONFIG_PATH="$pkgconfig" CMAKE_PREFIX_PATH="$scratch/moved"
versions=$(pkg-config --modversion runenv && moved/bin/runenv-versions --version)
[ "$(echo "$versions" | grep -c "$version")" = 2 ] || fail "$version is not in: $versions"

# Every header compiles, with the installed ones alone.
(cd moved/include/runenv && find . -name '*.h') | sed 's,^\./\(.*\),#include <\1>,' >all.cpp
"$CXX" $CXXFLAGS -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only \
  $(pkg-config --cflags runenv) all.cpp

# With pkg-config's words a C compiler links a C program.
"$CC" $CFLAGS $LINK_CXX -std=c11 "$tests/c_interface.c" $(pkg-config --cflags --libs runenv) \
  -o linked
./linked >log

# The ways of docs/embedding.md: 1 fetches a repository, 2 takes a folder, 3 and 4 what is installed.
awk '/^```(cmake|make)$/ { file = ++n; next } /^```/ { file = "" } file { print >file }' \
  "$source/docs/embedding.md"
cp "$tests"/install/* . && ln -s "$archive" runenv
quietly make -f 4 CXX="$CXX $CFLAGS" app
[ "$(./app | tr '\n' '|')" = 'before main|received hello|' ] || fail "the consumer"
quietly cmake -S . -B found -DWAY=3
quietly cmake --build found
found/app >/dev/null || fail "the consumer with find_package"
for other in 0.0 0.999 999.0; do
  sed "s/(runenv [0-9.]*/(runenv $other/" 3 >WAY
  ! cmake -S . -B found -DWAY=WAY >log 2>&1 || fail "version $version taken for $other"
  grep -q "runenvConfig.cmake, version: $version" log || fail "no word about the version"
done
quietly cmake -S . -B folder -DWAY=2
git() { command git -C "$archive" -c user.name=x -c user.email=x "$@"; }
git init -q && git add . && git commit -q -m x && git tag "v$version"
export GIT_CONFIG_COUNT=1 GIT_CONFIG_KEY_0="url.$archive.insteadOf" \
  GIT_CONFIG_VALUE_0=https://git.example.com/runenv.git
quietly cmake -S . -B fetched -DWAY=1
quietly cmake --build fetched --parallel 2
fetched/app >/dev/null || fail "the embedding consumer"
quietly cmake --install fetched --prefix "$scratch/nothing"
extra=$(find . -path './nothing/*' -o -path '*/runenv-build/*' -name 'runenv-*' -type f)
[ -z "$extra" ] || fail "the embedded project installs or builds $extra"

grep -q 'CPACK_GENERATOR "DEB"' "$build/CPackConfig.cmake" || {
  echo "Debian's tools are not installed: no packages tested"
  exit 0
}
for package in "$archive"/build/*.deb; do
  dpkg-deb -x "$package" unpacked
done
dpkg-deb -f "$archive"/build/runenv_*.deb Depends | grep '^curl, tar .*libc6 ' || fail Depends
unpacked/usr/bin/runenv-bootstrap --help 2>&1 | grep -q 'version info' || fail "the packaged program"
for page in "$source"/docs/man/*.1; do
  gzip -dc "unpacked/usr/share/man/man1/${page##*/}.gz" | cmp - "$page"
done
