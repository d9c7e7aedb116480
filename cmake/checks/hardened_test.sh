#!/bin/sh
# Checks that the library and the programs are hardened: hardened_test.sh CALL LIBRARY PROGRAM...
# CALL is a checked call of the C library. The last command in the output is the one that failed.
set -eux
call=$1 library=$2
shift 2

# Every object is marked for indirect branch tracking and shadow stacks. A program is not marked if
# the start code of the C library is not; for programs, main below is checked instead.
[ "$(readelf -nW "$library" | grep -c 'IBT, SHSTK')" = "$(ar t "$library" | wc -l)" ]

for program in "$@"; do
  readelf -hW "$program" | grep 'DYN (Position-Independent'
  readelf -lW "$program" | grep GNU_RELRO
  readelf -dW "$program" | grep 'Flags: NOW'
  readelf -sW "$program" | grep -m 1 __stack_chk_fail
  readelf -sW "$program" | grep -m 1 __glibcxx_assert_fail
  readelf -sW "$program" | grep -m 1 "$call@"
  objdump -d --disassemble=main "$program" | grep -A 1 '<main>:' | grep endbr64
  ! readelf -lW "$program" | grep 'GNU_STACK.*RWE' || exit 1
  # A function must not extend the stack by more than a page (0x1000) without touching it.
  # Subtracting a negative number shrinks the stack.
  ! objdump -d "$program" | grep -E 'sub +[$]0x[1-9a-f][0-9a-f]{3,},%rsp' |
    grep -v -e 0x1000, -e 0xffffffff || exit 1
done
