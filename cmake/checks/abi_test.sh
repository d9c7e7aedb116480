#!/bin/sh
# Compares the interface of the shared library with the last accepted one, librunenv.abi beside this
# script: abi_test.sh BUILD-DIRECTORY [--accept]. The interface is the symbols and their
# declarations in the public headers. BUILD-DIRECTORY has the library with debugging information,
# built by g++.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
headers=$(mktemp -d)
trap 'rm -rf "$headers"' EXIT
# Types of other headers are not part of the interface.
sed -n 's/^#include "\(.*\)"/\1/p' "$1/visible.h" | (cd "$here/../.." && xargs cp --parents -t "$headers")

abi() {
  abidw --suppressions "$here/abi_ignored.ini" --headers-dir "$headers" --drop-private-types --no-corpus-path --no-comp-dir-path \
    --no-show-locs --no-elf-needed --exported-interfaces-only --no-parameter-names --type-id-style hash --no-architecture "$1/librunenv.so"
}

if [ "${2-}" = --accept ]; then
  abi "$1" >"$here/librunenv.abi"
  exit
fi
abi "$1" >"$headers/abi"
abidiff "$here/librunenv.abi" "$headers/abi" || {
  echo "The interface has changed. To accept the change: $0 $1 --accept" >&2
  exit 1
}
