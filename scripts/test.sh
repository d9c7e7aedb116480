#!/bin/sh
# Builds everything and runs all tests. Words after the command go to CMake; BUILD_DIR names the
# build directory, "build" unless set.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require c++=g++ cc=gcc cmake=cmake ninja=ninja-build /usr/include/gtest/gtest.h=libgtest-dev \
  curl=curl tar=tar openssl=openssl nginx=nginx-light socat=socat \
  pkg-config=pkg-config git=git python3=python3 dpkg-shlibdeps=dpkg-dev file=file \
  strace=strace \
  /usr/include/sodium.h=libsodium-dev minisign=minisign \
  /usr/include/nlohmann/json.hpp=nlohmann-json3-dev jq=jq

build=${BUILD_DIR:-build}
generator='-G Ninja'
[ ! -e "$build/CMakeCache.txt" ] || generator= # as it was configured before
# shellcheck disable=SC2086 # nothing or two words
cmake -S . -B "$build" $generator "$@"
cmake --build "$build" --parallel
ctest --test-dir "$build" --output-on-failure --no-tests=error --parallel 2
