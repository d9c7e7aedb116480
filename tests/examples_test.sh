#!/bin/sh
# The example programs, as far as the documents do not run them, and what socat makes of one:
# examples_test.sh DIRECTORY-OF-PROGRAMS
set -eu
programs=$(cd "$1" && pwd)
scratch=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server"; rm -rf "$scratch"' EXIT
cd "$scratch"

fail() {
  echo "failed: $*" >&2
  exit 1
}
wait_for() {
  for _ in $(seq 500); do
    [ ! -e "$1" ] || return 0
    sleep 0.01
  done
  fail "no $1"
}

for program in echo_server chunk_receive chunk_send datagrams; do
  "$programs/$program" --help | grep -q "^usage: $program" || fail "$program --help"
  ! "$programs/$program" 2>/dev/null || fail "$program without arguments"
done

port=$((33000 + $$ % 20000))
"$programs/echo_server" $port echo.sock >log &
server=$!
wait_for echo.sock
answer=$(printf 'hello\0\0foreign peer\0' | socat -t 0.5 - TCP:127.0.0.1:$port,shut-none | tr '\0' '|')
[ "$answer" = 'hello||foreign peer|' ] || fail "echo: $answer"

head -c 3000000 /dev/urandom >file
"$programs/chunk_receive" receive.sock copy >lines &
receiver=$!
wait_for receive.sock
"$programs/chunk_send" receive.sock file one 'two words' >/dev/null
wait $receiver || fail "chunk_receive"
cmp file copy
"$programs/datagrams" . 'hello there' >>lines
[ "$(tr '\n' '|' <lines)" = 'one|two words|./asking asks: hello there|./answering answers: 11 bytes|' ] ||
  fail "messages: $(cat lines)"
