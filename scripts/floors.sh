#!/bin/sh
# Holds every include of the product against the floors that CONTRIBUTING.md tells of: a file
# includes only what is on its own floor or below, and the programs in app/ and tools/ nothing of
# each other. Silent when all is well.
set -eu
cd "$(dirname "$0")/.."

# The only file that reaches up: the main loop of the runtime object drives the sockets.
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
        print from " includes " to ", which is above it or apart from it"
        wrong = 1
      }
    }
    END { exit wrong }'
