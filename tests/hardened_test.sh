#!/bin/sh
# Looks at what was built for what hardening leaves in it: hardened_test.sh CALL LIBRARY PROGRAM...
# CALL is a checked call of the C library.
set -eu
call=$1 library=$2
shift 2
fail() {
  echo "$*" >&2
  exit 1
}

# Notes of indirect branch tracking and shadow stacks. Programs lose them where the C library's own
# start has none, so that there only the code tells.
objects=$(ar t "$library" | wc -l)
marked=$(readelf -nW "$library" | grep -c 'IBT, SHSTK') || true
[ "$marked" = "$objects" ] || fail "$library: $marked of $objects objects are marked for IBT, SHSTK"

for program in "$@"; do
  headers=$(readelf -hlW "$program") dynamic=$(readelf -dW "$program") symbols=$(readelf -sW "$program")
  main=$(objdump -d --disassemble=main "$program" | grep -A 1 '<main>:') || true
  check() {
    case $2 in
      *"$1"*) ;;
      *) fail "$program: no $1" ;;
    esac
  }
  check 'DYN (Position-Independent' "$headers"
  check GNU_RELRO "$headers"
  check 'Flags: NOW' "$dynamic"
  check __stack_chk_fail "$symbols"
  check __glibcxx_assert_fail "$symbols"
  check "$call@" "$symbols"
  check endbr64 "$main"
  if readelf -lW "$program" | grep -q 'GNU_STACK.*RWE'; then
    fail "$program: executable stack"
  fi
  # The stack grows by a page at most before it is touched.
  if objdump -d "$program" | grep -E 'sub +[$]0x[1-9a-f][0-9a-f]{3,},%rsp' | grep -v 0x1000,; then
    fail "$program: a function leaps over pages of the stack"
  fi
done
