#!/bin/sh
# Tests the caching proxy in front of the server that the guide configures. Both are real nginx
# servers on unix sockets. Pointers are cached for two seconds instead of ten. The programs must be
# on PATH.
set -eu
source=$(realpath "$(dirname "$0")/../..")
scratch=$(mktemp -d)
cd "$scratch"
local_server() {
  "$source/scripts/local-server.sh" "$@"
}
trap 'local_server stop origin; local_server stop proxy; rm -rf "$scratch"' EXIT

localised() {
  sed -e "s|listen 443|listen unix:$scratch/$1.sock|" -e '/listen \[/d' -e "s|/srv/runenv|$scratch/tree|" \
    -e "s|/etc/ssl/dist.example.com|$scratch/$1/server|" -e 's/max-age=10"/max-age=2"/' \
    -e "s|origin.example.com:443|unix:$scratch/origin.sock|" -e "s|origin.example.com|localhost|" \
    -e "s|/etc/ssl/certs/ca-certificates.crt|$scratch/origin/ca.pem|" -e "s|/var/cache/nginx|$scratch|"
}
fetch() {
  curl -s --unix-socket proxy.sock --cacert proxy/ca.pem -o got -w '%{http_code} %header{x-cache} ' \
    "https://localhost/2/runenv/platform/5/$1"
  [ "${2-}" = quiet ] || cat got
}
expect() {
  seen=$(fetch "$1" "${3-}")
  [ "$seen" = "$2" ] || {
    echo "$1: $seen, not $2" >&2
    exit 1
  }
}
asked() {
  grep -c "$1" origin/access.log || true
}
publish() { # gives the pointer always the same mtime
  echo "$1" >content/file
  runenv-publish --quiet tree platform 5 "$1" --from content
  touch -d @1 tree/2/runenv/platform/5/latest
}

mkdir -m 755 tree content origin proxy
# shellcheck disable=SC2016 # the backquotes belong to Markdown
sed -n '/^```nginx/,/^```/{/^```/!p}' "$source/docs/distribution-server.md" | localised origin >origin/site.conf
localised proxy <"$source/contrib/nginx/runenv-cache.conf" >proxy/site.conf
publish r1
local_server start origin
local_server start proxy

expect latest "200 MISS r1"
publish r2
for _ in 1 2 3 4 5; do expect latest "200 HIT r1"; done
[ "$(asked latest)" -eq 1 ]
sleep 3.1
expect latest "200 EXPIRED r2"
expect r2/linux-x64.tar.gz "200 MISS " quiet
cmp got tree/2/runenv/platform/5/r2/linux-x64.tar.gz
expect r2/linux-x64.tar.gz?again "200 HIT " quiet
expect 'x%20HTTP/1.1%0d%0aX:%20y.tar.gz?a' "404 MISS " quiet # an encoded line end stays encoded at the origin
[ "$(asked '/x%20HTTP/1.1%0D%0AX:%20y.tar.gz HTTP')" -eq 1 ]
# The origin ignores If-Modified-Since: a pointer may change twice in a second.
curl -s --unix-socket origin.sock --cacert origin/ca.pem https://localhost/2/runenv/platform/5/latest \
  -H 'If-Modified-Since: Thu, 01 Jan 1970 00:00:01 GMT' -o got
[ "$(cat got)" = r2 ]
expect r9/linux-x64.tar.gz "404 MISS " quiet
expect r9/linux-x64.tar.gz "404 MISS " quiet # not cached, so a later release is found at once
[ "$(asked r2/linux)" -eq 1 ]
expect .. "404  " quiet

# While the origin is down, machines are updated from the cache.
local_server stop origin
sleep 3.1
expect latest "200 STALE r2"
expect r1/linux-x64.tar.gz "502 MISS " quiet
mkdir curl
printf 'unix-socket = "%s"\ncacert = "%s"\nfail\n' "$scratch/proxy.sock" "$scratch/proxy/ca.pem" >curl/.curlrc
runenv-versions compose -o versions.bin 5
CURL_HOME=$PWD/curl runenv-bootstrap versions.bin
[ "$(cat runenv/platform/5/r2/file)" = r2 ]
local_server start origin
publish r3
expect latest "200 EXPIRED r3"
