#!/bin/sh
# Holds the documents to their word: docs_test.sh SOURCE-DIRECTORY BUILD-DIRECTORY
#
#   sh               A block is run in a directory of its document's own, with the built programs on
#                    the search path and a distribution server that has what the documents speak of.
#                    So are the examples of the manual pages. Lines with scripts/ must be in .ci/run,
#                    those with cmake and cpack are run by install_test.sh, and those that change
#                    the system are held against what --help tells.
#   text             What the sh block before it prints, to the byte.
#   hex              The bytes of the text before it, with remarks from column 41 on.
#   cpp              A whole example program.
#   nginx ini cron   A file, named in the first line. The server runs as nginx's says, and a client
#                    as the others say.
#   cmake make       In embedding.md, run by install_test.sh.
#   (none)           Not run; if it begins with a program, it is the usage that --help prints.
# shellcheck disable=SC2016,SC2086 # "$" for others to expand; words in $documents
set -eu
source=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
scratch=$(mktemp -d)
trap '"$source/scripts/local-server.sh" stop "$scratch/server"; rm -rf "$scratch"' EXIT
mkdir "$scratch/server" "$scratch/tmp" "$scratch/content"
export HOME="$scratch" PATH="$build:$PATH:/usr/sbin" CURL_HOME="$scratch/server/curl"
cd "$source"
documents=$(ls README.md CONTRIBUTING.md docs/*.md docs/man/*.1)

fail() {
  echo "failed: $*" >&2
  exit 1
}

# The fixed places and names of the documents, and where they lie here.
root=$scratch/root
places="s#\([ =':\"]\)/tmp/#\1$scratch/tmp/#g; s|\b7007\b|$((33000 + $$ % 20000))|g
  s|/srv/runenv|$scratch/server/www|g; s|dist\.example\.com|localhost|g
  s|/etc/ssl/localhost|$scratch/server/server|g; s|/usr/local/bin|$build|g
  s|/etc/runenv|$root&|g; s|/var/lib/runenv|$root&|g"

# The blocks of a document, in their order, as NUMBER.KIND in a directory of its name.
for document in $documents; do
  mkdir -p "$scratch/blocks/$document"
  sed 's/^\.Dl \(.*\)/```sh\n\1\n```/; s/^\.Bd.*/```sh/; s/^\.Ed/```/' "$document" |
    awk -v directory="$scratch/blocks/$document" '
    /^```/ && file == "" { file = sprintf("%s/%03d.%s", directory, ++n, substr($1, 4)); printf "" >file; next }
    /^```/ { close(file); file = ""; next }
    file != "" { print >file }'
  grep -oE '\]\([A-Za-z0-9_./-]+\)' "$document" | tr -d '])(' | while read -r link; do
    [ -e "$(dirname "$document")/$link" ] || fail "$document: no $link"
  done
done
for file in "$scratch"/blocks/docs/*/*.nginx "$scratch"/blocks/docs/*/*.ini "$scratch"/blocks/docs/*/*.cron; do
  name=$root$(sed -n '1s/^# //p' "$file")
  mkdir -p "${name%/*}"
  sed "$places" "$file" >"$name"
done

# The server, as its document says.
publish() { # TEXT ITEM...
  echo "$1" >"$scratch/content/README"
  shift
  runenv-publish "$scratch/server/www" "$@" --from "$scratch/content"
}
fill_server() {
  rm -rf "$scratch/server/www/2"
  publish 'the platform, release 1' platform 5 release-1
  publish 'the compiler, build 7' system-type compiler 1.4 build-7
  publish 'the linker, build 3' system-type linker 0.9 build-3
}
scripts/local-server.sh start "$scratch/server"
fill_server
address=$(sed -n 's/.*listen \(.*\) ssl;/\1/p' "$scratch/server/nginx.conf")
sed -i "/\[::\]/d; s/listen 443/listen $address/" "$root/etc/nginx/conf.d/runenv.conf"
sed -i '/^  server {/,$d' "$scratch/server/nginx.conf"
echo "include $root/etc/nginx/conf.d/runenv.conf; }" >>"$scratch/server/nginx.conf"
nginx -q -t -c "$scratch/server/nginx.conf" || fail "nginx's configuration"
kill -HUP "$(cat "$scratch/server/nginx.pid")"
for _ in $(seq 100); do
  curl -s -I https://localhost/2/runenv/platform/5/latest | grep -q '^Cache-Control' && break
  sleep 0.05
done

# What is not run, see above.
system='^\(useradd\|install\|systemctl\|journalctl\) '
elsewhere="$system\|^c\(make\|pack\) \|^\.ci/run\|scripts/"

run_block() {
  sed -n 's/ *#.*//; /scripts\//p' "$1" | while read -r line; do
    grep -qwFe "$line" "$source/.ci/run" || fail "CI does not run: $line"
  done
  sed -n "s/ *#.*//; /$system/p" "$1" | while read -r program words; do
    for word in $(echo "$words" | tr ' ' '\n' | grep -v runenv); do
      ! command -v "$program" >"$scratch/output" || "$program" --help | grep -qwFe "$word" ||
        fail "$program does not know $word"
    done
  done
  sed "\,$elsewhere,d; $places" "$1" >"$scratch/script"
  sh -euc 'trap "kill \${!-} 2>&- || :" EXIT; . "$0"' "$scratch/script" >"$scratch/output" 2>&1 ||
    fail "$(cat "$1" "$scratch/output")"
}

for document in $documents; do
  fill_server
  rm -f "$scratch"/tmp/*
  mkdir -p "$scratch/work/$document"
  cd "$scratch/work/$document"
  ln -s "$build" build
  case $document in *.1) # has no words for what its examples begin with
    mkdir out x64 arm64 && tar -czf linker.tar.gz out && runenv-versions compose -o versions.bin 5 ;;
  esac
  for block in "$scratch/blocks/$document"/*; do
    case $block in
      *.sh) run_block "$block" ;;
      *.text) sed "$places" "$block" | diff - "$scratch/output" || fail "what $document prints" ;;
      *.hex) [ "$(cut -c1-40 "$block" | tr -d ' \n')" = "$(tr -d ' \n' <"$scratch/output")" ] ||
        fail "the bytes in $document" ;;
      *.cpp) md5sum "$source"/examples/*.cpp | grep -q "$(md5sum <"$block" | cut -c1-32)" ||
        fail "$document has a program that is no example" ;;
      *.) [ "$(cut -d - -f 1 "$block")" != runenv ] || runenv-bootstrap --help 2>&1 |
        grep -qFe "$(cut -d ' ' -f 2- "$block")" || fail "the usage in $document" ;;
      *.nginx | *.ini | *.cron | */embedding.md/*make | */'*') ;;
      *) fail "$document has a block of a kind that nobody knows: ${block##*.}" ;;
    esac
  done
done
cd "$source"

# Files, options and variables that the documents speak of are there.
grep -ohE '`[a-z.]+/[a-z0-9_./-]+[` ]' $documents | tr -d '` ' | while read -r path; do
  [ ! -d "${path%%/*}" ] || [ -e "$path" ] || [ -e "$build/${path#build/}" ] || fail "no $path"
done
{ env --help && tar --help && cat CMakeLists.txt cmake/* scripts/*.sh app/* schema/* tools/* tests/*.*; } >"$scratch/known"
grep -ohE '`[^`]*`|Fl -[a-z-]+|RUNENV_[A-Z_]+' $documents | sed 's/Fl -/--/' |
  grep -oE -e '--[a-z][a-z-]+|RUNENV_[A-Z_]+' | sort -u | while read -r word; do
  grep -qwFe "$word" "$scratch/known" || fail "nobody knows $word"
done

# A machine, as the units and the cron line say, with curl's settings.
units=$root/etc/systemd/system
! command -v systemd-analyze >/dev/null || systemd-analyze verify --man=no "$units"/*.timer ||
  fail "the units"
cat "$CURL_HOME/.curlrc" >>"$root/etc/runenv/.curlrc"
runenv-versions compose -o "$root/etc/runenv/versions.bin" 5 linker=0.9
{
  sed -n 's/^Environment=/export /p; s/^WorkingDirectory=/cd /p; s/^ExecStart=//p' "$units"/*.service
  echo 'rm -r runenv; sleep() { :; }'
  sed -n 's/\\%/%/g; s/^CURL_HOME/export &/p; s/^0 \* \* \* \*  runenv  //p' "$root/etc/cron.d/runenv-update"
} >"$scratch/script"
mkdir -p "$root/var/lib/runenv"
sh -eu "$scratch/script" >"$scratch/output" 2>&1 || fail "$(cat "$scratch/output")"
[ "$(grep -c '^- 2/runenv' "$scratch/output"):$(wc -l <"$scratch/output")" = 4:4 ] || fail "$(cat "$scratch/script" "$scratch/output")"

# A run with a setting that must not be set ends as its row says, and prints what the row quotes. A
# run before it was killed while it unpacked, and left another archive.
cp README.md "$scratch/content"
head -c 200000 /dev/urandom >"$scratch/content/data"
publish 'the platform, release 2' platform 6 release-2
runenv-versions compose -o "$scratch/six.bin" 6
run_with() { # SETTING OUTCOME TEXT
  cd "$(mktemp -d "$scratch/machine.XXXXXX")"
  mkdir -p curl .update runenv/platform/6/release-2
  cp "$scratch/server/www/2/runenv/system-types/linker/0.9/build-3/linux-x64.tar.gz" .update
  echo 'the pla' >runenv/platform/6/release-2/README
  cp "$root/etc/runenv/.curlrc" curl
  case $1 in
    --*) export TAR_OPTIONS="$1" ;;
    *)
      curl --help all | grep -qe "--${1%% *} " || return 0 # an older curl knows fewer
      echo "$1" >>curl/.curlrc
      ;;
  esac
  export CURL_HOME="$PWD/curl"
  limit=30
  [ "$2" != hangs ] || limit=2
  status=0
  timeout $limit runenv-bootstrap ../six.bin >output 2>&1 || status=$?
  outcome=fails
  case $status in
    124) outcome=hangs ;;
    0)
      outcome=damages
      ! diff -r "$scratch/content" runenv/platform/6/release-2 >/dev/null || outcome=installs
      ;;
  esac
  case $outcome:$(cat output) in
    "$2":*"$3"*) ;;
    *) echo "$1: $outcome, not $2: $(cat output)" >>"$scratch/wrong" ;;
  esac
}
(run_with fail installs '')
sed -n '/^## Never set these/,/^## /s/^| \(`.*`\)[^`]* | \([a-z]*\)[^`]*\(.*\) |$/\1|\2|\3/p' \
  docs/operations.md | sed "$places" >"$scratch/rows"
[ "$(wc -l <"$scratch/rows")" -gt 15 ] || fail "the rows of what must not be set"
while IFS='|' read -r settings outcome said; do
  said=${said#'`'}
  echo "$settings" | grep -o '`[^`]*`' | tr -d '`' | {
    while IFS= read -r setting; do
      (run_with "$setting" "$outcome" "${said%%'`'*}") &
    done
    wait
  }
done <"$scratch/rows"
[ ! -e "$scratch/wrong" ] || fail "$(cat "$scratch/wrong")"

# Every message of the programs is told: the fixed parts of what the code prints or throws.
told=$(cat docs/*.md | tr -s '\n ' ' ')
calls='throw_failure|throw_failure_of|throw_errno|throw_usage|fail|fail_child|redirect_child|report|parse_text_option'
for file in app/*.cpp core/buffer.cpp fs/*.cpp process/*.cpp schema/*.cpp tools/*.cpp; do
  tr '\n' ' ' <"$file" | grep -oE "\b($calls|Runtime\.(error|log))\([^;]*;" | grep -oE '"([^"\\]|\\.)*"' |
    sed 's/\\n//g; s/^"//; s/"$//; s/%[-0-9.*l]*[a-z]/\n/g' | grep -E '.{6}' | while read -r part; do
      case $told in *"$part"*) ;; *) fail "$file: nothing is said about: $part" ;; esac
    done
done
