#!/bin/sh
# Shows the bootstrapper at work on this machine: builds it, serves a small run-time environment
# from a web server of its own, installs it, and updates it. Leaves nothing behind but build-demo/.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require c++=g++ cmake=cmake ninja=ninja-build curl=curl tar=tar openssl=openssl nginx=nginx-light

say() { printf '\n== %s\n' "$*"; }
run() {
  printf '$ %s\n' "$*"
  "$@"
}

say "Building"
cmake -S . -B build-demo -G Ninja -DBUILD_TESTING=OFF -DRUNENV_BASE_URL=https://localhost >/dev/null
cmake --build build-demo
PATH=$(pwd)/build-demo:$PATH
server_script=$(pwd)/scripts/local-server.sh

demo=$(mktemp -d "${TMPDIR:-/tmp}/runenv-demo-XXXXXX")
mkdir "$demo/server" "$demo/content" "$demo/machine"
trap '"$server_script" stop "$demo/server"; rm -rf "$demo"' EXIT
trap 'exit 1' HUP INT TERM

# publish DIRECTORY VERSION TEXT: puts an archive with one file into the server's tree, then lets
# the "latest" pointer name it.
publish() {
  mkdir -p "$demo/server/www/$1/$2"
  echo "$3" >"$demo/content/README"
  tar -C "$demo/content" -czf "$demo/server/www/$1/$2/linux-x64.tar.gz" README
  echo "$2" >"$demo/server/www/$1/latest"
}

show_environment() {
  printf '$ find runenv -type f\n'
  find runenv -type f | LC_ALL=C sort | while read -r file; do
    printf '%-48s %s\n' "$file" "$(head -n 1 "$file")"
  done
}

say "A distribution server with a platform and two system types, on loopback"
publish 2/runenv/platform/5 release-1 "the platform, release 1"
publish 2/runenv/system-types/compiler/1.4 build-7 "the compiler, build 7"
publish 2/runenv/system-types/linker/0.9 build-3 "the linker, build 3"
"$server_script" start "$demo/server"
CURL_HOME=$demo/server/curl
export CURL_HOME
cd "$demo/server/www"
find 2 -type f | LC_ALL=C sort

say "The document that names what this machine needs"
cd "$demo/machine"
run runenv-versions compose -o versions.bin 5 linker=0.9 compiler=1.4
run runenv-versions show versions.bin

say "The first run installs everything"
run runenv-bootstrap versions.bin
show_environment

say "The second run finds everything up to date and prints nothing"
run runenv-bootstrap versions.bin

say "The linker is published anew: the next run updates it, and it alone"
publish 2/runenv/system-types/linker/0.9 build-4 "the linker, build 4"
run runenv-bootstrap versions.bin
show_environment
