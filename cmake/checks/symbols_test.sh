#!/bin/sh
# Names of the library must not meet those of a program that it is linked with. Each symbol that it
# defines is in one of the namespaces, begins with one of the prefixes or is one of the names that
# the guide lists; a shared library has none of those that the guide calls the library's own:
# symbols_test.sh LIBRARY GUIDE
set -eu
# shellcheck disable=SC2016 # backticks of the guide
listed=$(sed -n '/^## Names/,/^## /p' "$2" | grep -o '`[^`]*`' | tr -d '`' | paste -sd ' ')
table=
case $1 in
  *.so*) table=--dynamic listed=$(echo "$listed " | sed -e 's/runenv:: //g' -e 's/runenv_ /runenv_version /g') ;;
esac

# What is left of a symbol without template arguments, parameters and type is its qualified name.
# Templates of the standard library and the type information of function types are told apart by
# their arguments, which are ours.
# shellcheck disable=SC2086 # nothing or a word
nm $table --demangle --defined-only --extern-only "$1" | sed -n 's/^[0-9a-f]\{16\} [A-Za-z] //p' |
  sed -e '/^typeinfo.* for void (/d' -e ':again' -e 's/<[^<>]*>//g' -e 't again' -e 's/(.*//' -e 's/.* //' | sort -u |
  grep -vE '^(std|__gnu_cxx)::|^DW\.ref\.' | awk -v listed="$listed" '
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
