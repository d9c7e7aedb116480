#!/bin/sh
# Builds everything and runs all tests. PRESET is one of CMakePresets.json; the default is
# "release". BUILD_DIR names the build directory if it is not to be the preset's. Arguments go to
# CMake.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require c++=g++ cc=gcc cmake=cmake ninja=ninja-build /usr/include/gtest/gtest.h=libgtest-dev \
  curl=curl tar=tar openssl=openssl nginx=nginx-light socat=socat \
  pkg-config=pkg-config git=git python3=python3 dpkg-shlibdeps=dpkg-dev file=file \
  strace=strace \
  /usr/include/sodium.h=libsodium-dev minisign=minisign \
  /usr/include/nlohmann/json.hpp=nlohmann-json3-dev jq=jq

preset=${PRESET:-release}
build=build-$preset
[ "$preset" != release ] || build=build
build=${BUILD_DIR:-$build}
generator=Ninja
[ ! -e "$build/CMakeCache.txt" ] || # keep the generator of an existing build
  generator=$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "$build/CMakeCache.txt")
cmake --preset "$preset" -B "$build" -G "$generator" "$@"
cmake --build "$build" --parallel
ctest --test-dir "$build" --output-on-failure --no-tests=error --parallel 2
