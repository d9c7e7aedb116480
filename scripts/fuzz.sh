#!/bin/sh
# Builds the fuzz targets with clang under AddressSanitizer and UndefinedBehaviorSanitizer and runs
# each for some time: fuzz.sh [SECONDS [TARGET...]]. The default is 60 seconds and all targets.
# BUILD_DIR names the build directory. The default is "build-fuzz". New inputs that increase the
# coverage are kept there, in fuzz/found.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require clang++=clang cmake=cmake ninja=ninja-build
require "$(clang++ -print-resource-dir)/lib/linux/libclang_rt.fuzzer-x86_64.a=libclang-rt-$(clang++ -dumpversion | cut -d. -f1)-dev"

seconds=${1:-60}
[ $# -eq 0 ] || shift
build=${BUILD_DIR:-build-fuzz}
cmake --preset fuzz -B "$build" -DRUNENV_FUZZ_SECONDS="$seconds"
cmake --build "$build" --parallel
pattern=$(echo "$@" | tr ' ' '|')
ctest --test-dir "$build" --verbose --no-tests=error -R "^fuzz_($pattern)" --parallel 2
