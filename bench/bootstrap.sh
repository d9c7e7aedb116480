#!/bin/sh
# Measures whole runs of the bootstrapper, by_hand.sh and back_to_back with nginx on loopback:
# bootstrap.sh BUILD OUT [quick]. Writes the medians to OUT.json, and a sentence on memory and
# processor time to OUT.md.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
server=$here/../scripts/local-server.sh
build=$(cd "$1" && pwd)
out=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")
quick=${3-}

work=$(mktemp -d "${TMPDIR:-/tmp}/runenv-bench-XXXXXX")
trap '"$server" stop "$work/server"; rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
www=$work/server/www/2/runenv
mkdir -p "$www" "$work/server" "$work/content" "$work/machine" "$work/bin"
head -c 1048576 /dev/urandom >"$work/content/data"
tar -C "$work/content" -czf "$work/archive.tar.gz" data

# The platform and 99 system types.
items=platform/5
for i in $(seq -w 1 99); do
  items="$items system-types/type-$i/1.0"
done
for item in $items; do
  mkdir -p "$www/$item/release-1"
  echo release-1 >"$www/$item/latest"
  ln "$work/archive.tar.gz" "$www/$item/release-1/linux-x64.tar.gz"
done
"$server" start "$work/server"
export CURL_HOME="$work/server/curl"

# fetch URL NAME, list KIND ITEM...: print the steps of the bootstrapper for items that are current
# or new, as input for back_to_back.
fetch() {
  printf '%s\n' "mkdir .update" "run .update curl -s -L -o $2 $1/$2"
}
list() {
  kind=$1
  shift
  for item in "$@"; do
    url=https://localhost/2/runenv/$item
    local=runenv/$item
    fetch "$url" latest
    printf '%s\n' "read .update/latest" "unlink .update/latest"
    if [ "$kind" = current ]; then
      echo "read $local/latest"
    else
      fetch "$url/release-1" linux-x64.tar.gz | sed 1d
      printf '%s\n' "mkdir $local" "mkdir $local/release-1" \
        "run . tar -x -f .update/linux-x64.tar.gz -C $local/release-1" \
        "unlink .update/linux-x64.tar.gz" "write $local/latest release-1"
    fi
    echo "rmdir .update"
  done
}

# compare CASE KIND COUNT ROUNDS: runs on the first COUNT items.
compare() {
  echo "bootstrap: $1" >&2
  these=$(echo "$items" | cut -d ' ' -f "1-$3")
  types=$(echo "$these" | tr ' ' '\n' | sed -n 's,system-types/\(.*\)/,\1=,p')
  # shellcheck disable=SC2086 # lists of words from here on
  "$build/runenv-versions" compose -o versions.bin 5 $types
  # shellcheck disable=SC2086
  list "$2" $these >steps
  clean='rm -rf .update'
  make=true
  if [ "$2" = new ]; then
    clean="$clean runenv"
    # back_to_back only creates the item's directory, so its parents must exist.
    make="mkdir -p$(for item in $these; do printf ' runenv/%s' "${item%/*}"; done)"
  fi
  "$build/runenv-bootstrap" versions.bin >/dev/null
  "$build/bench/stopwatch" "$1" "$([ "$quick" ] && echo 1 || echo "$4")" \
    runenv "$clean" "$build/runenv-bootstrap versions.bin" \
    "shell script" "$clean" "sh $here/by_hand.sh $these" \
    "the same steps alone" "$clean; $make" "$build/bench/back_to_back steps" \
    >>medians
}

cd "$work/machine"
echo "bootstrap: start" >&2
"$build/bench/stopwatch" "start, --help" "$([ "$quick" ] && echo 1 || echo 301)" \
  runenv : "$build/runenv-bootstrap --help" \
  true : /bin/true 2>/dev/null >medians
compare "1 item up to date" current 1 41
compare "10 items up to date" current 10 21
compare "100 items up to date" current 100 9
compare "10 first installs of 1 MiB" new 10 11

# Asking about items that are up to date: runenv-status beside the bootstrapper. The processor time
# of both is with curl's, that of the server what its worker takes meanwhile.
worker=$(cat "/proc/$(cat "$work/server/nginx.pid")/task"/*/children)
worker=/proc/${worker% }/schedstat
server_time() { cut -d ' ' -f 1 "$worker"; }
mkdir verbose
{ cat "$CURL_HOME/.curlrc" && echo verbose; } >verbose/.curlrc
# ask COUNT ROUNDS NAME COMMAND
ask() {
  echo "bootstrap: $1 items, $3" >&2
  [ ! "$quick" ] || set -- "$1" 1 "$3" "$4"
  before=$(server_time)
  "$build/bench/stopwatch" "$1" "$2" "$3" : "$4" >asked
  after=$(server_time)
  handshakes=$(CURL_HOME=$PWD/verbose $4 2>&1 | grep -c '^[*] SSL connection' || true)
  jq -r --argjson server "$(((after - before) / $2))" --arg handshakes "$handshakes" --arg who "$3" '
    def ms: . / 1e4 | round / 100;
    "| \(.run_name / "/" | .[0]) | \($who) | \(.real_time | ms) ms | \(.cpu | ms) ms | \($server | ms) ms | \($handshakes) |"
  ' asked >>asking
}
if [ -x "$build/runenv-status" ]; then
  for count in 1 10 100; do
    echo "$items" | tr ' ' '\n' | head -n "$count" | sed -n 's,system-types/\(.*\)/,\1=,p' |
      xargs "$build/runenv-versions" compose -o versions.bin 5
    "$build/runenv-bootstrap" versions.bin >/dev/null
    ask $count 9 runenv-bootstrap "$build/runenv-bootstrap versions.bin"
    ask $count 21 'runenv-status --check' "$build/runenv-status --check versions.bin"
  done
  echo "bootstrap: 10,000 items" >&2
  # shellcheck disable=SC2046
  "$build/runenv-versions" compose -o many.bin 5 $(seq -f 'type-%.0f=1.0' 9999)
  mkdir many
  seq -f 'many/runenv/system-types/type-%.0f/1.0/release-1' 9999 |
    xargs mkdir -p many/runenv/platform/5/release-1
  for item in many/runenv/platform/5 many/runenv/system-types/*/1.0; do
    echo release-1 >"$item/latest"
  done
  "$build/bench/stopwatch" many "$([ "$quick" ] && echo 1 || echo 9)" \
    runenv : "$build/runenv-status --directory many many.bin" >many.json
fi

# Verifying and unpacking compared with unpacking alone. The release holds programs and libraries.
if [ -x "$build/runenv-verify" ]; then
  echo "bootstrap: verifying" >&2
  mkdir -p tree keys
  minisign -G -W -p keys/key.pub -s secret.key >/dev/null
  find /usr/bin -type f -readable -name "$([ "$quick" ] && echo 'z*' || echo '*')" |
    tar -P -czf all.tar.gz --transform='s,/usr/,,' -T -
  "$build/runenv-publish" tree platform 5 r1 --from all.tar.gz --as-is --quiet --sign secret.key
  mv tree/2/runenv/platform/5/r1/linux-x64.tar.gz .
  size=$(($(stat -c %s linux-x64.tar.gz) / 1000000))
  "$build/bench/stopwatch" "unpack an archive of $size MB" "$([ "$quick" ] && echo 1 || echo 5)" \
    runenv "rm -rf runenv; mkdir -p runenv/platform/5/r1; sync" \
    "$build/runenv-verify --keys keys --tar -x -f linux-x64.tar.gz -C runenv/platform/5/r1" \
    "tar alone" "rm -rf runenv; mkdir -p runenv/platform/5/r1; sync" \
    "tar -x -f linux-x64.tar.gz -C runenv/platform/5/r1" >>medians
  rm -rf runenv tree all.tar.gz
fi

# The peak memory use of the program itself, in a run that installs ten items and finds ninety
# current. Its last child reads it. The processor time is that of a run in which all are current.
stand_in=$work/bin/curl
cat >"$stand_in" <<STAND_IN
#!/bin/sh
sed -n 's/^VmHWM:[[:blank:]]*\([0-9]*\) kB/\1/p' /proc/\$PPID/status >$work/peak
exec $(command -v curl) "\$@"
STAND_IN
chmod +x "$stand_in"
echo "$items" | tr ' ' '\n' | sed -n 's,system-types/\(.*\)/,\1=,p' |
  xargs "$build/runenv-versions" compose -o versions.bin 5
PATH=$work/bin:$PATH "$build/runenv-bootstrap" versions.bin >/dev/null
own_cpu() {
  jq -r --arg who "$1" \
    'select(.run_name == "100 items up to date/" + $who) | .own_cpu / 1e5 | round / 1e3' medians
}
{
  echo "Own processor time of an item that is up to date (of 100): $(own_cpu runenv) ms; the same steps"
  echo "alone take $(own_cpu 'the same steps alone') ms. Peak of the program's own memory, with 100 items:"
  echo "$(cat "$work/peak") KiB, beside $("$build/bench/empty") KiB of an empty C++ program."
  if [ -e asking ]; then
    printf '\n%s\n\n' "Asking about items that are up to date; processor time with that of curl:"
    echo '| items | program | time | processor time | of the server | TLS handshakes |'
    echo '|---|---|---|---|---|---|'
    cat asking
    printf '\n%s\n' "runenv-status of 10,000 items, without the network: $(jq -r \
      '"\(.real_time / 1e6 | round) ms, \(.peak_kib) KiB"' many.json)."
  fi
} >"$out.md"
jq -s '{benchmarks: .}' medians >"$out.json"
