#!/bin/sh
# Looks at what was built for what hardening leaves in it: hardened_test.sh CALL LIBRARY PROGRAM...
# CALL is a checked call of the C library. The last command that is shown is the one that failed.
set -eux
call=$1 library=$2
shift 2

# Notes of indirect branch tracking and shadow stacks. Programs lose them where the C library's own
# start has none, so that there only the code tells.
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
  # The stack grows by a page at most before it is touched. A negative number shrinks it.
  ! objdump -d "$program" | grep -E 'sub +[$]0x[1-9a-f][0-9a-f]{3,},%rsp' |
    grep -v -e 0x1000, -e 0xffffffff || exit 1
done
