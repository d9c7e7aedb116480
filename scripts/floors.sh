#!/bin/sh
# Checks every include of the product against the floors in CONTRIBUTING.md: a file includes only
# what is on its own floor or below, and app/ and tools/ include nothing of each other. Prints
# nothing if there is no error.
set -eu
cd "$(dirname "$0")/.."

# The only include of a higher floor: the main loop of the runtime object polls the sockets.
exceptions='runtime/polling.cpp socket/poll.h'

git ls-files app core fs process runtime schema socket stream tools | grep -E '\.(cpp|h)$' |
  xargs grep -H '^#include "' | awk -F'[:"]' -v exceptions="$exceptions" '
    BEGIN {
      floor["core"] = floor["runtime"] = 1
      floor["fs"] = floor["process"] = 2
      floor["stream"] = floor["socket"] = 3
      floor["schema"] = 4
      floor["app"] = floor["tools"] = 5
    }
    {
      from = $1; to = $3
      split(from, a, "/"); split(to, b, "/")
      apart = floor[a[1]] == 5 && floor[b[1]] == 5 && a[1] != b[1]
      if ((!(b[1] in floor) || floor[b[1]] > floor[a[1]] || apart) && from " " to != exceptions) {
        print from " includes " to ", which is on a higher floor or in the other programs"
        wrong = 1
      }
    }
    END { exit wrong }'
