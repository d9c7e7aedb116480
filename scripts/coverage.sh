#!/bin/sh
# Measures with gcov which lines of the product the tests reach. Prints the coverage of each folder,
# then every line that no test reaches. BUILD_DIR names the build directory. The default is
# "build-coverage".
set -eu
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build-coverage}
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# Some tests fill the disk or run as another user, so that gcov cannot write its data. The tests
# would take its error messages for output of the program.
export GCOV_ERROR_FILE=/dev/null
umask 0
PRESET=coverage BUILD_DIR=$build scripts/test.sh >"$log" 2>&1 || {
    cat "$log" >&2
    exit 1
  }
root=$(pwd)
cd "$build"
rm -rf gcov
mkdir gcov
cd gcov
find .. -name '*.cpp.gcda' ! -path '*/tests/*' ! -path '*/fuzz/*' ! -path '*/examples/*' \
  -exec gcov -r -s "$root" {} + >gcov.log 2>&1
for file in *.cpp.gcov; do
  awk -F: '
    $3 ~ /^Source/ { source = $4 }
    $2 + 0 > 0 {
      count = $1; gsub(/[ *]/, "", count)
      if (count == "-") next
      line = $2 + 0
      match($0, /^[^:]*:[^:]*:/)
      text[line] = substr($0, RLENGTH + 1)
      if (count !~ /^[#=]/) reached[line] = 1  # one instance of a template is enough
    }
    END {
      for (line in text) {
        ++lines
        if (line in reached) ++hit; else print source ":" line ":" text[line] >>"missed"
      }
      print source ":" lines + 0 ":" hit + 0
    }' "$file"
done | awk -F: '
  { split($1, parts, "/"); lines[parts[1]] += $2; reached[parts[1]] += $3; all += $2; hit += $3 }
  END {
    for (folder in lines)
      printf "%-10s %5.1f%% of %d lines\n", folder, 100 * reached[folder] / lines[folder], lines[folder]
    printf "%-10s %5.1f%% of %d lines\n", "together", 100 * hit / all, all
  }' | sort
echo
sort -t : -k 1,1 -k 2,2n missed 2>/dev/null || true
