#!/bin/sh
# Looks at the sources without running them: includes, formatting, clang-tidy, cppcheck, shellcheck. Silent
# when all is well. BUILD_DIR names the build directory it makes, "build-lint" unless set.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require clang++=clang clang-format=clang-format clang-tidy=clang-tidy cppcheck=cppcheck \
  shellcheck=shellcheck mandoc=mandoc cmake=cmake ninja=ninja-build \
  /usr/include/sodium.h=libsodium-dev /usr/include/nlohmann/json.hpp=nlohmann-json3-dev

scripts/floors.sh
sources=$(git ls-files '*.cpp' '*.h' '*.c')
# shellcheck disable=SC2086 # a list of files
clang-format --dry-run --Werror $sources
git ls-files '*.sh' 'contrib/*.sh.in' contrib/debian/p* .ci/run scripts/completions/bash | xargs shellcheck -x
if git ls-files '*.1' | xargs mandoc -T lint 2>&1 |
  grep -v -e 'referenced manual not found' -e 'outdated mandoc.db'; then # not installed here
  exit 1
fi
# cppcheck 2.10 takes a designated initialiser for an assignment.
cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability --inline-suppr \
  --suppress=selfAssignment --suppress=accessMoved \
  --std=c++20 --language=c++ -I . app core fs process runtime schema socket stream tools examples

build=${BUILD_DIR:-build-lint}
cmake -S . -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DBUILD_TESTING=OFF >/dev/null
git ls-files '*.cpp' | grep -vE '^(tests|fuzz|bench|cmake)/' |
  xargs -P 2 -n 6 clang-tidy -quiet -p "$build" 2>"$build/tidy.log" || {
    cat "$build/tidy.log" >&2
    exit 1
  }
