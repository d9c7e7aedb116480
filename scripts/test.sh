#!/bin/sh
# Builds everything and runs all tests. PRESET is one of CMakePresets.json, "release" unless set, and
# BUILD_DIR the build directory, unless it is to be the preset's. Words after the command go to CMake.
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
[ ! -e "$build/CMakeCache.txt" ] || # as it was configured before
  generator=$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "$build/CMakeCache.txt")
cmake --preset "$preset" -B "$build" -G "$generator" "$@"
cmake --build "$build" --parallel
ctest --test-dir "$build" --output-on-failure --no-tests=error --parallel 2
