#!/bin/bash
# What the completions offer in each shell that is here: completion_test.sh DIRECTORY-OF-PROGRAMS
# shellcheck disable=SC2016,SC2088,SC2317 # for other shells, in functions called by their names
set -eu
programs=$(cd "$1" && pwd) root=$(cd "$(dirname "$0")/.." && pwd)
completions=$root/scripts/completions scratch=$(mktemp -d) failures=0
trap 'rm -rf "$scratch"' EXIT
# A directory is told by a "/" behind it, which no other word may have.
mkdir -p "$scratch"/{folder,platform,system-type,linker,linux-x64} \
  "$scratch/tree/2/runenv/system-types/linker/0.9/build-3" && touch "$scratch/document"

in_bash() {
  # shellcheck disable=SC2046 # bash makes three words of --option=value
  set -- $(printf '%s\n' "$@" | sed 's/^\(--.*\)=/\1 = /')
  bash -c 'compopt() { mark=/; }; source "$0/bash/$1" && COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    $(complete -p "$1" | sed "s/.*-F \([^ ]*\) .*/\1/")
    for word in "${COMPREPLY[@]}"; do [[ -d $word ]] && word+=$mark; echo "$word"; done' \
    "$completions" "$@"
}
in_zsh() { # what its completion system would be given, filtered as it filters
  zsh -fc 'compadd() { print -l -- ${@:#--} }
    _describe() { print -l -- ${${(P)@[-1]}%%:*} }
    _files() { [[ $1 == -/ ]] && print -l -- *(N/M) || print -l -- *(NM) }
    service=$2 words=("${@[2,-1]}") CURRENT=$(($# - 1)); source $1/zsh/_runenv' \
    zsh "$completions" "$@" | grep -e "^${*: -1}" || true
}
in_fish() {
  fish --no-config -c 'source $argv[1]/fish/$argv[2].fish; complete -C "$argv[2..]"' \
    "$completions" "$@" | cut -f 1
}

shells=bash
for shell in zsh fish; do
  command -v $shell >/dev/null && shells+=" $shell" || echo "$shell is not here: not tested"
done
expect() { # WORDS-OFFERED COMMAND-LINE-WORD..., the last one unfinished
  local offered=$1 shell actual && shift
  for shell in $shells; do
    actual=$(cd "$scratch" && "in_$shell" "$@" | sort | xargs)
    [ "$actual" = "$offered" ] ||
      { echo "$shell offers '$actual' instead of '$offered' after: $*" && failures=1; } >&2
  done
}

expect '--help --lock-latest --skip-platform --target --temp-cache' runenv-bootstrap --
expect '--lock-latest --skip-platform --temp-cache' runenv-bootstrap --target linux-x64 --
expect '--lock-latest --skip-platform' runenv-bootstrap --temp-cache folder --
expect '' runenv-bootstrap --skip-platform --lock-latest --t
expect '' runenv-bootstrap --help --
expect '' runenv-bootstrap --lock-latest --skip-platform d
expect '' runenv-bootstrap document d
expect 'document' runenv-bootstrap --lock-latest d
expect 'linux-x64' runenv-bootstrap --target l
expect 'folder/' runenv-bootstrap --temp-cache f
expect 'document' runenv-versions show d
expect 'document' runenv-versions compose -o d
HOME=$scratch expect 'linker' runenv-publish --replace '~/tree' system-type l
shells=bash expect 'folder/' runenv-publish tree --from=f
expect 'platform' runenv-publish tree p
expect '0.9' runenv-publish tree --from folder system-type linker 0
expect 'build-3' runenv-publish tree system-type linker 0.9 b
expect 'document' runenv-publish tree --from d
expect 'system-type' runenv-publish --from=folder tree s
expect '--keep-latest' runenv-publish tree --k

# No option is missing in a completion or in the manual.
for program in runenv-bootstrap runenv-versions runenv-publish; do
  for option in $("$programs/$program" --help 2>&1 | grep -o -e '--[a-z][a-z-]*' | sort -u); do
    for file in "$completions/bash/$program" "$completions/zsh/_runenv" \
      "$completions/fish/$program.fish" "$root/docs/man/$program.1"; do
      grep -q -e "-l\? \?${option#--}" "$file" || { echo "$file: no $option" && failures=1; } >&2
    done
  done
done
exit $failures
