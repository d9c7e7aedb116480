#!/bin/sh
# Looks at built programs for what hardening leaves in them: hardened_test.sh PROGRAM...
set -eu
for program in "$@"; do
  headers=$(readelf -hlW "$program") dynamic=$(readelf -dW "$program") symbols=$(readelf -sW "$program")
  check() {
    case $2 in
      *"$1"*) ;;
      *) echo "$program: no $1" >&2 && exit 1 ;;
    esac
  }
  check 'DYN (Position-Independent' "$headers"
  check GNU_RELRO "$headers"
  check 'Flags: NOW' "$dynamic"
  check __stack_chk_fail "$symbols"
  check _chk@ "$symbols"
  if readelf -lW "$program" | grep -q 'GNU_STACK.*RWE'; then
    echo "$program: executable stack" >&2 && exit 1
  fi
done
