#!/bin/sh
# Checks that the library's names cannot collide with those of a program:
# symbols_test.sh LIBRARY GUIDE
# Each symbol is in a namespace, begins with a prefix or is a name that the guide lists. A shared
# library does not export the names that the guide calls internal.
set -eu
# shellcheck disable=SC2016 # backticks of the guide
listed=$(sed -n '/^## Names/,/^## /p' "$2" | grep -o '`[^`]*`' | tr -d '`' | paste -sd ' ')
table=
case $1 in
  *.so*) table=--dynamic listed=$(echo "$listed " | sed -e 's/runenv:: //g' -e 's/runenv_ /runenv_version /g') ;;
esac

# Reduces each symbol to its qualified name: removes template arguments, parameters and the type.
# Templates of the standard library and type information of function types are skipped: their
# arguments, types of this library, make them unique. Placement new and delete, which are functions
# in a build without optimisation, are skipped, too.
# shellcheck disable=SC2086 # nothing or a word
nm $table --demangle --defined-only --extern-only "$1" | sed -n 's/^[0-9a-f]\{16\} [A-Za-z] //p' |
  sed -e '/^typeinfo.* for void (/d' -e '/^operator [a-z]*(.*, void\*)$/d' \
    -e ':again' -e 's/<[^<>]*>//g' -e 't again' -e 's/^decltype *(.*)&* \(std\|__gnu_cxx\)::/\1::/' \
    -e 's/^void (\*[^(]*std::/std::/' -e 's/::operator[" ]* [a-z]*/::operator/' -e 's/(.*//' -e 's/.* //' | sort -u |
  grep -vE '^(std|__gnu_cxx)::|^DW\.ref\.|^__clang_call_terminate$' | awk -v listed="$listed" '
    BEGIN { count = split(listed, name) }
    {
      for (i = 1; i <= count; ++i) {
        behind = substr($0, length(name[i]) + 1, 1)
        if (index($0, name[i]) == 1 && (name[i] ~ /[_:]$/ || behind !~ /[A-Za-z0-9_]/)) next
      }
      print "not listed: " $0
      wrong = 1
    }
    END { exit wrong || NR < 100 }'
