#!/bin/sh
# Demonstrates the programs on this machine: builds them, publishes a small environment on its own
# web server, installs it, rolls out a release, rolls it back and verifies a signed one. Only
# build-demo/ remains afterwards.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require c++=g++ cmake=cmake ninja=ninja-build curl=curl tar=tar openssl=openssl nginx=nginx-light \
  /usr/include/sodium.h=libsodium-dev minisign=minisign

say() { printf '\n== %s\n' "$*"; }
run() {
  printf '$ %s\n' "$*"
  "$@"
}

build='build-demo'
say "Building"
cmake -S . -B "$build" -G Ninja -DBUILD_TESTING=OFF -DRUNENV_BUILD_EXAMPLES=OFF \
  -DRUNENV_BASE_URL=https://localhost >/dev/null
cmake --build "$build"
PATH=$(pwd)/$build:$PATH
server_script=$(pwd)/scripts/local-server.sh

demo=$(mktemp -d "${TMPDIR:-/tmp}/runenv-demo-XXXXXX")
mkdir -p "$demo/server/www" "$demo/content" "$demo/machine"
trap 'trap "" HUP INT TERM; "$server_script" stop "$demo/server"; rm -rf "$demo"' EXIT
trap 'exit 1' HUP INT TERM

# publish RELEASE TEXT ITEM...: publishes a directory with one file. Signs it with the key file $key
# if that is set.
key=
publish() {
  release=$1
  echo "$2" >../content/README
  shift 2
  run runenv-publish ../server/www "$@" "$release" --from ../content ${key:+--sign "$key"}
}

show_environment() {
  printf '$ find runenv -type f\n'
  find runenv -type f | LC_ALL=C sort | while read -r file; do
    printf '%-48s %s\n' "$file" "$(head -n 1 "$file")"
  done
}

cd "$demo/machine"
say "A producer publishes a platform and two system types"
publish release-1 "the platform, release 1" platform 5
publish build-7 "the compiler, build 7" system-type compiler 1.4
publish build-3 "the linker, build 3" system-type linker 0.9
run find ../server/www -type f

say "nginx serves them on loopback, over TLS"
"$server_script" start "$demo/server"
export CURL_HOME="$demo/server/curl"

say "The document that names what this machine needs"
run runenv-versions compose -o versions.bin 5 linker=0.9 compiler=1.4
run runenv-versions show versions.bin

say "The first run installs everything"
run runenv-bootstrap versions.bin
show_environment

say "The second run finds everything up to date and prints nothing"
run runenv-bootstrap versions.bin

say "Rolling out: a new release of the linker is published, and the next run installs it alone"
publish build-4 "the linker, build 4" system-type linker 0.9
run runenv-bootstrap versions.bin
show_environment

say "Rolling back: the pointer moves to the release before, and the next run follows it"
run runenv-publish ../server/www system-type linker 0.9 build-3 --latest-only
run runenv-bootstrap versions.bin
run cat runenv/system-types/linker/0.9/latest
echo

say "Signed releases: with the producer's key the machine verifies before it unpacks"
mkdir ../keys ../bin
run minisign -G -W -p ../keys/producer.pub -s ../producer.key >/dev/null
printf '#!/bin/sh\nexec runenv-verify --keys "%s/keys" --tar "$@"\n' "$demo" >../bin/tar
chmod +x ../bin/tar
# Runs a command with the verifying tar first on PATH. An installation contains such a tar.
verifying() {
  printf '$ %s\n' "PATH=../bin:\$PATH $*"
  PATH=$demo/bin:$PATH "$@"
}
publish build-5 "the linker, build 5, not signed" system-type linker 0.9
! verifying runenv-bootstrap versions.bin 2>&1 || exit 1
key=../producer.key
publish build-6 "the linker, build 6" system-type linker 0.9
verifying runenv-bootstrap versions.bin
run runenv-verify --keys ../keys ../server/www/2/runenv/system-types/linker/0.9/build-6/linux-x64.tar.gz
