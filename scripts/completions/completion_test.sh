#!/bin/bash
# Tests what the completions offer in each shell that is installed.
# shellcheck disable=SC2016,SC2046,SC2086,SC2317 # code for other shells; split words; functions by name
set -eu
completions=$(cd "$(dirname "$0")" && pwd) HOME=$(mktemp -d)
export HOME
trap 'rm -rf "$HOME"' EXIT
cd
mkdir -p folder platform system-type linker linux-x64 tree/2/runenv/system-types/linker/0.9/build-3
touch document

# A command line whose last word is incomplete, and the words that are offered for it. Directories,
# and nothing else, end with "/".
cat >table <<'END'
runenv-bootstrap --: --help --lock-latest --skip-platform --target --temp-cache
runenv-bootstrap --target linux-x64 --: --lock-latest --skip-platform --temp-cache
runenv-bootstrap --temp-cache folder --: --lock-latest --skip-platform
runenv-bootstrap --skip-platform --lock-latest --t:
runenv-bootstrap --help --:
runenv-bootstrap --lock-latest --skip-platform d:
runenv-bootstrap document d:
runenv-bootstrap --lock-latest d: document
runenv-bootstrap --target l: linux-x64
runenv-bootstrap --temp-cache f: folder/
runenv-versions show d: document
runenv-versions compose -o d: document
runenv-publish --replace ~/tree system-type l: linker
runenv-publish tree --from=f: folder/
runenv-publish tree p: platform
runenv-publish tree --from folder system-type linker 0: 0.9
runenv-publish tree system-type linker 0.9 b: build-3
runenv-publish tree --from d: document
runenv-publish --from=folder tree s: system-type
runenv-publish tree --k: --keep-latest
runenv-publish --list --from document tree --l: --latest-only --list
runenv-publish --sign document tree p: platform
runenv-verify --: --help --keys --tar --version
runenv-verify --keys f: folder/
runenv-verify d: document
runenv-prune --d: --directory --dry-run
runenv-prune --keep 1 --temp-cache f: folder/
runenv-prune d: document
runenv-status --check --t: --temp-cache
runenv-status --ver: --verify --version
runenv-status --directory f: folder/
runenv-served t: tree/
runenv-served tree c: check
runenv-served tree prune --: --dry-run --grace --help --keep --older-than --version
runenv-served tree prune --keep 1 --dry-run --g: --grace
runenv-served tree list --j: --json
END

in_bash() {
  set -- $(printf '%s\n' "$@" | sed 's/^\(--.*\)=/\1 = /') # bash splits --option=value into three words
  bash -c 'compopt() { mark=/; }; source "$0/bash/$1" && COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    $(complete -p "$1" | sed "s/.*-F \([^ ]*\) .*/\1/")
    for word in "${COMPREPLY[@]}"; do [[ -d $word ]] && word+=$mark; echo "$word"; done' \
    "$completions" "$@"
}
in_zsh() { # prints what the completion system would get, filtered in the same way
  zsh -fc 'compadd() { print -l -- ${@:#--} }
    _describe() { print -l -- ${${(P)@[-1]}%%:*} }
    _files() { [[ $1 == -/ ]] && print -l -- *(N/M) || print -l -- *(NM) }
    service=$2 words=("${@[2,-1]}") CURRENT=$(($# - 1)); source $1/zsh/_runenv' \
    zsh "$completions" "$@" | grep -e "^${*: -1}"
}
in_fish() {
  fish --no-config -c 'source $argv[1]/fish/$argv[2].fish; complete -C "$argv[2..]"' \
    "$completions" "$@" | cut -f 1
}
failed=
for shell in bash zsh fish; do
  command -v $shell || { echo "$shell is not installed: not tested" && continue; }
  while IFS=: read -r line _; do echo $line: $("in_$shell" $line | sort); done <table >offered
  diff table offered || failed=1
  sed -i '/--from=f:/d' table # only bash completes this
done
[ ! "$failed" ]
