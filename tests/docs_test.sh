#!/bin/sh
# Holds the documents to their word: docs_test.sh SOURCE-DIRECTORY BUILD-DIRECTORY
#
#   sh               A block is run in a directory of its document's own, with the built programs on
#                    the search path and a distribution server that has what the documents speak of.
#                    Lines that begin with cmake, cpack, scripts/ or .ci/run are not run again: CI must.
#   text             What the sh block before it prints, to the byte.
#   hex              The bytes of the text before it, with remarks from column 41 on.
#   cpp              A whole example program.
#   nginx ini cron   A file, named in the first line. The server runs as nginx's says, and a client
#                    as the others say.
# shellcheck disable=SC2016,SC2086 # "$" for others to expand; words in $documents
set -eu
source=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
scratch=$(mktemp -d)
trap '"$source/scripts/local-server.sh" stop "$scratch/server"; rm -rf "$scratch"' EXIT
mkdir "$scratch/server" "$scratch/tmp" "$scratch/content"
export HOME="$scratch" PATH="$build:$PATH:/usr/sbin" CURL_HOME="$scratch/server/curl"
cd "$source"
documents=$(ls README.md CONTRIBUTING.md docs/*.md)

fail() {
  echo "failed: $*" >&2
  exit 1
}

# The fixed places and names of the documents, and where they lie here.
root=$scratch/root
places="s#\([ =':]\)/tmp/#\1$scratch/tmp/#g; s|\b7007\b|$((33000 + $$ % 20000))|g
  s|/srv/runenv|$scratch/server/www|g; s|dist\.example\.com|localhost|g
  s|/etc/ssl/localhost|$scratch/server/server|g; s|/usr/local/bin|$build|g
  s|/etc/runenv|$root&|g; s|/var/lib/runenv|$root&|g"

# The blocks of a document, in their order, as NUMBER.KIND in a directory of its name.
for document in $documents; do
  mkdir -p "$scratch/blocks/$document"
  awk -v directory="$scratch/blocks/$document" '
    /^```/ && file == "" { file = sprintf("%s/%03d.%s", directory, ++n, substr($1, 4)); printf "" >file; next }
    /^```/ { close(file); file = ""; next }
    file != "" { print >file }' "$document"
  { grep -oE '\]\([A-Za-z0-9_./-]+\)' "$document" || :; } | tr -d '])(' | while read -r link; do
    [ -e "$(dirname "$document")/$link" ] || fail "$document: no $link"
  done
done
for file in "$scratch"/blocks/docs/*/*.nginx "$scratch"/blocks/docs/*/*.ini "$scratch"/blocks/docs/*/*.cron; do
  name=$root$(sed -n '1s/^# //p' "$file")
  mkdir -p "${name%/*}"
  sed "$places" "$file" >"$name"
done

# The server, as its document says.
fill_server() {
  rm -rf "$scratch/server/www/2"
  while read -r item release text; do
    item=$scratch/server/www/2/runenv/$item
    mkdir -p "$item/$release"
    echo "$text" >"$scratch/content/README"
    tar -C "$scratch/content" -czf "$item/$release/linux-x64.tar.gz" README
    echo "$release" >"$item/latest"
  done <<END
platform/5 release-1 the platform, release 1
system-types/compiler/1.4 build-7 the compiler, build 7
system-types/linker/0.9 build-3 the linker, build 3
END
}
fill_server
scripts/local-server.sh start "$scratch/server"
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

# in_ci LINE: some line that CI runs has all words of each command in LINE.
sed -e ':a' -e '/\\$/N; s/\\\n//; ta' -e 's/\$build/build/g; s/"//g' .ci/run scripts/test.sh tests/*_test.sh >"$scratch/ci"
in_ci() {
  echo "$1" | sed 's/ *#.*//; s/ *\[.*\]//g; s/ && /\n/g' | while read -r command; do
    [ "$command" = .ci/run ] || words=$(printf '%s\n' $command) awk '
      BEGIN { n = split(ENVIRON["words"], words, "\n") }
      { for (i = 1; i <= n && index(" " $0 " ", " " words[i] " "); ++i); if (i > n) found = 1 }
      END { exit !found }' "$scratch/ci" || fail "CI does not run: $command"
  done
}

run_block() {
  { grep -E '^(cmake|cpack|scripts/|\.ci/run)' "$1" || :; } | while read -r line; do in_ci "$line"; done
  {
    echo 'trap "kill \${!-} 2>/dev/null || :" EXIT'
    # A server in the background is waited for by its socket.
    sed -e "/^\(cmake\|cpack\|scripts\/\|\.ci\/run\)/d; $places" \
      -e 's/^.* \([^ ]*\.sock\) .*&$/&\nfor _ in $(seq 500); do [ -S \1 ] \&\& break; sleep 0.02; done; sleep 0.1/' "$1"
  } >"$scratch/script"
  sh -eu "$scratch/script" >"$scratch/output" 2>&1 || fail "$(cat "$1" "$scratch/output")"
}

is_example() {
  for program in "$source"/examples/*.cpp; do
    ! cmp -s "$1" "$program" || return 0
  done
  return 1
}

for document in $documents; do
  fill_server
  rm -f "$scratch"/tmp/*
  mkdir -p "$scratch/work/$document"
  cd "$scratch/work/$document"
  ln -s "$build" build
  for block in "$scratch/blocks/$document"/*; do
    case $block in
      *.sh) run_block "$block" ;;
      *.text) sed "$places" "$block" | diff - "$scratch/output" || fail "what $document prints" ;;
      *.hex) [ "$(cut -c1-40 "$block" | tr -d ' \n')" = "$(tr -d ' \n' <"$scratch/output")" ] ||
        fail "the bytes in $document" ;;
      *.cpp) is_example "$block" || fail "$document has a program that is no example" ;;
    esac
  done
done
cd "$source"

# The tables of commands: what is not left to people is run by CI.
grep -hE '^[|] `([A-Z_]+=[^ ]+ )*(scripts/|\.ci/|build/)' $documents | while IFS='|' read -r _ cell rest; do
  command=$(echo "$cell" | tr -d '`')
  program=$(echo "$command" | tr ' ' '\n' | grep -m 1 /)
  [ -x "$program" ] || [ -x "$build/${program#build/}" ] || fail "there is no $program"
  case $rest in *"by hand"*) ;; *) in_ci "$command" ;; esac
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

# Every message of the programs is told: the fixed parts of what the code prints or throws.
told=$(cat docs/*.md | tr -s '\n ' ' ')
calls='throw_failure|throw_errno|fail|fail_on|fail_usage|fail_child|redirect_child|report|parse_text_option'
for file in app/*.cpp core/buffer.cpp fs/*.cpp process/*.cpp schema/*.cpp tools/*.cpp; do
  tr '\n' ' ' <"$file" | grep -oE "\b($calls|Runtime\.(error|log))\([^;]*;" | grep -oE '"([^"\\]|\\.)*"' |
    sed 's/\\n//g; s/^"//; s/"$//; s/%[-0-9.*l]*[a-z]/\n/g' | grep -E '.{6}' | while read -r part; do
      case $told in *"$part"*) ;; *) fail "$file: nothing is said about: $part" ;; esac
    done
done
