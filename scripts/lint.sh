#!/bin/sh
# Static checks: includes, spelling, formatting, shellcheck, mandoc, cppcheck and clang-tidy. Prints
# nothing if there is no error. BUILD_DIR names the build directory. The default is "build-lint".
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require clang++=clang clang-format=clang-format clang-tidy=clang-tidy cppcheck=cppcheck \
  shellcheck=shellcheck mandoc=mandoc codespell=codespell cmake=cmake ninja=ninja-build \
  /usr/include/sodium.h=libsodium-dev /usr/include/nlohmann/json.hpp=nlohmann-json3-dev

scripts/floors.sh
# "Nd" is a macro of manual pages.
git ls-files | grep -vE '^fuzz/corpus/|[.]abi$' | xargs codespell --check-hidden -L nd
sources=$(git ls-files '*.cpp' '*.h' '*.c')
# shellcheck disable=SC2086 # a list of files
clang-format --dry-run --Werror $sources
git ls-files '*.sh' 'contrib/*.sh.in' contrib/debian/p* .ci/run scripts/completions/bash | xargs shellcheck -x
if git ls-files '*.1' | xargs mandoc -T lint 2>&1 |
  grep -v -e 'referenced manual not found' -e 'outdated mandoc.db'; then # not installed here
  exit 1
fi
# cppcheck 2.10 reports designated initialisers as self-assignments.
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
