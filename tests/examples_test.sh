#!/bin/sh
# The example programs, talking to each other and to socat: examples_test.sh DIRECTORY-OF-PROGRAMS
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
for address in TCP:127.0.0.1:$port UNIX-CONNECT:echo.sock; do
  answer=$(printf 'hello\0\0foreign peer\0' | socat -t 0.5 - "$address,shut-none" | tr '\0' '|')
  [ "$answer" = 'hello||foreign peer|' ] || fail "echo over $address: $answer"
done

head -c 3000000 /dev/urandom >file
"$programs/chunk_receive" receive.sock copy >lines &
receiver=$!
wait_for receive.sock
"$programs/chunk_send" receive.sock file one 'two words' >/dev/null
wait $receiver || fail "chunk_receive"
cmp file copy
[ "$(tr '\n' '|' <lines)" = 'one|two words|' ] || fail "messages: $(cat lines)"

# A sender that is not ours, and a receiver that is not.
"$programs/chunk_receive" receive.sock copy >lines &
receiver=$!
wait_for receive.sock
printf '\0\0\0\3abc\0\0\0\1d\0\0\0\0\0\0\0\2hi\0\0\0\0' | socat - UNIX-CONNECT:receive.sock
wait $receiver || fail "chunk_receive from socat"
[ "$(cat copy lines)" = "abcdhi" ] || fail "from socat: $(cat copy lines)"
socat -u UNIX-LISTEN:listen.sock CREATE:bytes &
receiver=$!
wait_for listen.sock
printf abc >short
"$programs/chunk_send" listen.sock short x >/dev/null
wait $receiver
[ "$(od -An -tx1 -v bytes | tr -d ' \n')" = 0000000361626300000000000000017800000000 ] ||
  fail "bytes: $(od -An -tx1 bytes)"

"$programs/datagrams" . 'hello there' >lines
[ "$(tr '\n' '|' <lines)" = './asking asks: hello there|./answering answers: 11 bytes|' ] ||
  fail "datagrams: $(cat lines)"
