#!/bin/sh
# Uses the installed files and the packages as a user does: install_test.sh BUILD-DIRECTORY CONFIG
# Compilers, their flags and CMake's generator come from the environment. The last command in the
# output is the one that failed.
# shellcheck disable=SC2016,SC2046,SC2086 # "$" for another shell; words of pkg-config and the flags
set -eux
BUILT=$(cd "$1" && pwd) source=$(cd "$(dirname "$0")/../.." && pwd) scratch=$(mktemp -d)
export BUILT
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

# The source archive contains exactly the files that git tracks.
cpack -G TGZ --config "$BUILT/CPackSourceConfig.cmake" -B source
tar -xzf source/runenv-*.tar.gz --one-top-level=runenv --strip-components=1
if [ -e "$source/.git" ] && git -C "$source" ls-files >tracked; then
  (cd "$source" && xargs -d '\n' ls -d) <tracked | sort >present
  find runenv -type f -printf '%P\n' | sort | diff present -
fi

# Runs the commands of docs/building.md there, with read-only sources and a umask that hides new files
# from other users. The build step uses what has already been built.
sed -n -e 's/ *#.*//' -e 's|^cmake --build|cp "$BUILT"/*.cmake|p' -e '/^cmake -S/p' \
  -e "s/^cmake --install.*/& --config $2/p" -e "s/^cpack.*/& -C $2/p" runenv/docs/building.md >commands
chmod a-w runenv/cmake/*
(cd runenv && umask 077 && DESTDIR="$scratch/root" sh -eux ../commands) >log 2>&1 || { cat log && exit 1; }
! grep 'RUNENV_BASE_URL "https://localhost"' "$BUILT/CPackConfig.cmake" || # the default needs a warning
  grep 'packages are for the distribution server https://localhost' log

# A moved installation works.
mv "$(dirname "$(find root -type d -name bin)")" moved
grep -x 'ExecStart=/usr/local/libexec/runenv-update %i' moved/lib/systemd/system/runenv-update@.service
sh -n moved/libexec/runenv-update
find root -type f >outside
[ ! -s outside ]
PKG_CONFIG_PATH=$(find "$scratch/moved" -type d -name pkgconfig)
LD_LIBRARY_PATH=${PKG_CONFIG_PATH%/*} # for a shared library
export LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH="$scratch/moved"
version=$(pkg-config --modversion runenv)
moved/bin/runenv-versions --version | grep -Fw "$version"
[ -e "source/runenv-$version.tar.gz" ]
! grep -E 'scripts/|CONTRIBUTING|cmake ' moved/share/doc/runenv/README.md || exit 1
sed -n 's|.*](\([A-Za-z][A-Za-z./-]*\)).*|moved/share/doc/runenv/\1|p' moved/share/doc/runenv/README.md | xargs ls
(cd moved/share/doc/runenv-dev && sed -n 's|.*](\([A-Za-z.][A-Za-z./-]*\)[)#].*|\1|p' ./*.md | xargs ls)

# All headers, and the includes of the examples, compile with the installed headers alone. A C
# compiler links a C program.
set -- $(pkg-config --cflags --libs runenv)
find moved/include/runenv -name '*.h' -printf '#include <%P>\n' >all.cpp
cat runenv/examples/*.cpp | grep '^#include "' >>all.cpp
$CXX $CXXFLAGS -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only all.cpp $(pkg-config --cflags runenv)
$CC $CFLAGS $LINK_CXX -std=c11 runenv/tests/c_interface.c "$@"
./a.out

# The ways in docs/embedding.md: 1 fetches a repository, 2 adds a folder, 3 and 4 use the
# installation.
awk '/^```(cmake|make)$/ { file = ++n; next } /^```/ { file = "" } file { print >file }' \
  runenv/docs/embedding.md
cp runenv/cmake/checks/consumer/* .
make -f 4 CXX="$CXX $CFLAGS" app
[ "$(./app | paste -sd '|')" = 'before main|received hello' ]
cmake -S . -B found -DWAY=3
cmake --build found --target app
found/app
for other in 0.0 0.999 999.0; do
  sed "s/(runenv [0-9.]*/(runenv $other/" 3 >refused
  ! cmake -S . -B found -DWAY=refused 2>log || exit 1
  grep "runenvConfig.cmake, version: $version" log
done
cmake -S . -B folder -DWAY=2
# A copy of the guides' programs is a project of its own.
cp -r moved/share/doc/runenv-dev/examples copied
cmake -S copied -B copied/build
cmake --build copied/build --target strings
[ "$(copied/build/strings b a | head -n 1)" = 'a b - words: 2' ]
export GIT_CONFIG_GLOBAL="$scratch/gitconfig"
printf '[user]\nname = x\nemail = x\n[url "%s"]\ninsteadOf = https://git.example.com/runenv.git\n' \
  "$scratch/runenv" >gitconfig
(cd runenv && git init -q && git add . && git commit -q -m x && git rev-parse HEAD >../commit)
sed -i "s/GIT_TAG [0-9a-f]*/GIT_TAG $(cat commit)/" 1
cmake -S . -B fetched -DWAY=1 -DCMAKE_UNITY_BUILD=ON
cmake --build fetched --parallel 2
fetched/app
# The embedding project installs nothing of runenv and builds none of its programs.
cmake --install fetched --prefix nothing
[ ! -e nothing ]
find fetched/_deps/runenv-build -type f >built
! grep '/runenv-[a-z]*$' built || exit 1

# Debian's packages.
grep 'CPACK_GENERATOR "DEB"' "$BUILT/CPackConfig.cmake" ||
  { echo "Debian's tools are not installed: no packages tested" && exit; }
for package in runenv/build/*.deb; do dpkg-deb -x "$package" unpacked; done
dpkg-deb -f runenv/build/runenv_*.deb Depends | grep '^curl, tar .*libc6 '
unpacked/usr/bin/runenv-bootstrap --help 2>&1 | grep 'version info'
for page in runenv/docs/man/*.1; do
  gzip -dc "unpacked/usr/share/man/man1/${page##*/}.gz" >packed
  tail -n +4 "$page" >text
  tail -n +5 packed | cmp - text
  sed 4q packed | paste -sd ' ' |
    grep -E "[.]Dd [A-Z][a-z]+ [0-9]+, 20[0-9]+ [.]Dt [A-Z-]+ 1 runenv-$version [.]Os runenv $version"
done
# The changelogs list the same versions, and lintian reports nothing.
for changelog in unpacked/usr/share/doc/*/changelog.gz; do
  gzip -dc "$changelog" >packed
  [ "$(dpkg-parsechangelog --all -l packed -S version | head -n 1)" = "$version" ]
  [ "$(grep -c '^runenv (' packed)" = "$(grep -c '^## \[' runenv/CHANGELOG.md)" ]
done
ls -d unpacked/usr/lib/*-linux-gnu/cmake/runenv
# CPack makes the scripts of a shared library call ldconfig, although its trigger does so.
! command -v lintian ||
  [ -z "$(lintian --allow-root --suppress-tags maintscript-calls-ldconfig runenv/build/*.deb)" ]
# runenv-verify has its own package, with a link named tar outside of the search path.
[ "$(readlink -f unpacked/usr/libexec/runenv/tar)" = "$PWD/unpacked/usr/bin/runenv-verify" ]
dpkg-deb -f runenv/build/runenv-verify_*.deb Depends | grep libsodium
dpkg-deb -c runenv/build/runenv_*.deb | grep bin/runenv-status
# The timer and cron start a file that exists. An upgrade keeps curl's settings.
for file in lib/systemd/system/runenv-update@.service share/runenv/runenv-update.cron; do
  [ -x "unpacked$(sed -n 's|.*[ =]\(/usr/libexec/[^ ]*\) .*|\1|p' unpacked/usr/$file)" ]
done
dpkg-deb -I runenv/build/runenv_*.deb conffiles >kept
[ -e "unpacked$(cat kept)" ]
! grep -r '@[A-Za-z_]*@' unpacked/usr/libexec unpacked/usr/lib/systemd || exit 1
